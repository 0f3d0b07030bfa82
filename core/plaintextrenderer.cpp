#include "core/plaintextrenderer.h"

#include <QDomDocument>
#include <QDomElement>
#include <QRegularExpression>

namespace {

const int IndentWidth = 4;

bool isPreformattedDiv(const QDomElement &element)
{
    QString style = element.attribute(QStringLiteral("style")).toLower();
    style.remove(QLatin1Char(' '));
    return style.split(QLatin1Char(';')).contains(QLatin1String("white-space:pre"));
}

} // namespace

PlainTextRenderer::PlainTextRenderer(int width)
    : m_width(width)
{ }

bool PlainTextRenderer::render(const QByteArray &document, QString *text, QString *error)
{
    QDomDocument dom;
    QString message;
    int line = 0;
    int column = 0;
    if (!dom.setContent(document, &message, &line, &column)) {
        *error = message + QStringLiteral(" line: ") + QString::number(line) + QStringLiteral(" column: ")
            + QString::number(column);
        return false;
    }
    const QDomNodeList bodies = dom.elementsByTagName(QStringLiteral("body"));
    if (bodies.isEmpty()) {
        *error = QStringLiteral("body element not found");
        return false;
    }

    m_indent = 0;
    m_preformatted = 0;
    m_spacePending = false;
    m_line.clear();
    m_lines.clear();
    walk(bodies.at(0));
    endLine();
    while (!m_lines.isEmpty() && m_lines.first().isEmpty())
        m_lines.removeFirst();
    while (!m_lines.isEmpty() && m_lines.last().isEmpty())
        m_lines.removeLast();
    *text = m_lines.join(QLatin1Char('\n'));
    return true;
}

void PlainTextRenderer::walk(const QDomNode &node)
{
    for (QDomNode child = node.firstChild(); !child.isNull(); child = child.nextSibling()) {
        if (child.isText() || child.isCDATASection()) {
            addText(child.nodeValue());
            continue;
        }
        if (!child.isElement())
            continue;
        const QDomElement element = child.toElement();
        const QString tag = element.tagName().toLower();
        if (tag == QLatin1String("br")) {
            endLine(true);
        } else if (tag == QLatin1String("blockquote")) {
            endLine();
            ++m_indent;
            walk(element);
            endLine();
            --m_indent;
        } else if (tag == QLatin1String("pre")
            || (tag == QLatin1String("div") && isPreformattedDiv(element))) {
            endLine();
            ++m_preformatted;
            walk(element);
            --m_preformatted;
            endLine();
        } else if (tag == QLatin1String("div")) {
            endLine();
            walk(element);
            endLine();
        } else if (tag == QLatin1String("p") || tag == QLatin1String("h1") || tag == QLatin1String("h2")
            || tag == QLatin1String("h3") || tag == QLatin1String("h4") || tag == QLatin1String("h5")) {
            blankLine();
            walk(element);
            blankLine();
        } else {
            walk(element);
        }
    }
}

void PlainTextRenderer::addText(const QString &text)
{
    if (m_preformatted) {
        const QStringList pieces = text.split(QLatin1Char('\n'));
        for (int i = 0; i < pieces.size(); ++i) {
            if (i > 0)
                endLine(true);
            if (!pieces.at(i).isEmpty() && m_line.isEmpty())
                m_line = indentation();
            m_line += pieces.at(i);
        }
        return;
    }
    static const QRegularExpression whitespace(QStringLiteral("\\s+"));
    const QStringList words = text.split(whitespace);
    for (int i = 0; i < words.size(); ++i) {
        // Whitespace between two pieces of text becomes one blank, even across elements.
        if (i > 0)
            m_spacePending = true;
        if (!words.at(i).isEmpty())
            addWord(words.at(i));
    }
}

void PlainTextRenderer::addWord(const QString &word)
{
    if (m_line.isEmpty()) {
        m_line = indentation() + word;
    } else if (!m_spacePending) {
        m_line += word;
    } else if (m_line.size() + 1 + word.size() <= m_width) {
        m_line += QLatin1Char(' ') + word;
    } else {
        endLine();
        m_line = indentation() + word;
    }
    m_spacePending = false;
}

void PlainTextRenderer::endLine(bool evenWhenEmpty)
{
    if (!m_line.isEmpty() || evenWhenEmpty)
        m_lines.append(m_line);
    m_line.clear();
    m_spacePending = false;
}

void PlainTextRenderer::blankLine()
{
    endLine();
    if (!m_lines.isEmpty() && !m_lines.last().isEmpty())
        m_lines.append(QString());
}

QString PlainTextRenderer::indentation() const
{
    return QString(m_indent * IndentWidth, QLatin1Char(' '));
}
