#pragma once

#include <QString>

#include <cstdio>

// A one-line progress bar for the console modes, redrawn in place on standard
// error so that standard output keeps only the file names. A started bar is
// finished (drawn full and ended with a line feed) at the latest when it is
// destroyed, so the terminal's next line is always clean.
class TextProgressBar
{
public:
    // width: total line width in characters, caption and percentage included.
    explicit TextProgressBar(int width);
    ~TextProgressBar();
    TextProgressBar(const TextProgressBar &) = delete;
    TextProgressBar &operator=(const TextProgressBar &) = delete;

    // Starts a bar that reaches 100% after total units.
    void start(const QString &caption, qint64 total);
    void advance(qint64 units);
    // Draws the bar full and ends its line. Does nothing when not started.
    void finish();
    bool isStarted() const { return m_started; }

    // The bar as drawn for the current state, without the carriage return.
    QString line() const;

    // Writes text and a line feed on standard output, lifting the bar out of
    // the way first so that the two do not mix on one terminal line.
    void printLine(const QString &text);

private:
    void draw(bool force);
    void erase();

    int m_width;
    bool m_started = false;
    QString m_caption;
    qint64 m_total = 0;
    qint64 m_done = 0;
    int m_drawnPercent = -1;
};
