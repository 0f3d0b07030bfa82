#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

class QDomNode;

// Turns an HTML document that is also well-formed XML (the licence agreement)
// into plain text for the console, word-wrapped to a width. Paragraphs and
// headings are separated by blank lines, block quotes are indented,
// preformatted text keeps its line breaks, every other element only passes its
// children on.
class PlainTextRenderer
{
public:
    explicit PlainTextRenderer(int width);

    // The rendered lines joined with line feeds. False with a message in
    // error when the document does not parse or has no "body" element.
    bool render(const QByteArray &document, QString *text, QString *error);

private:
    void walk(const QDomNode &node);
    void addText(const QString &text);
    void addWord(const QString &word);
    void endLine(bool evenWhenEmpty = false);
    void blankLine();
    QString indentation() const;

    int m_width;
    int m_indent = 0;
    int m_preformatted = 0;
    bool m_spacePending = false;
    QString m_line;
    QStringList m_lines;
};
