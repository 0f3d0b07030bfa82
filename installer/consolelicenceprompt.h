#pragma once

#include <QStringList>

#include <cstdio>

// Shows the licence agreement on the console and asks whether it is accepted.
// On an interactive console (standard input and output both terminals) the
// text goes a screenful at a time, each followed by a key press; otherwise it
// is written in one go. Used by the copy-files mode and by silent runs that
// have no window.
class ConsoleLicencePrompt
{
public:
    // rows: the terminal's height; a screenful is one row less, leaving room
    // for the key prompt. in/out are the console's streams.
    ConsoleLicencePrompt(bool interactive, int rows, FILE *in = stdin, FILE *out = stdout);

    // Shows the lines and asks until the answer is yes or no. End of input
    // counts as no.
    bool ask(const QStringList &lines);

    // The embedded agreement rendered for a console of this size, shown on
    // standard output and asked about on standard input. Acceptance writes
    // "License agreement accepted"; refusal throws HException "License
    // agreement not accepted".
    static void confirmAgreement(int columns, int rows);

private:
    void show(const QStringList &lines);
    bool readAnswer();

    bool m_interactive;
    int m_rows;
    FILE *m_in;
    FILE *m_out;
};
