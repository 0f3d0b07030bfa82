#include "installer/textprogressbar.h"

#include <algorithm>

TextProgressBar::TextProgressBar(int width)
    : m_width(width)
{ }

TextProgressBar::~TextProgressBar()
{
    finish();
}

void TextProgressBar::start(const QString &caption, qint64 total)
{
    finish();
    m_started = true;
    m_caption = caption;
    m_total = total;
    m_done = 0;
    draw(true);
}

void TextProgressBar::advance(qint64 units)
{
    if (!m_started)
        return;
    m_done = std::min(m_total, m_done + units);
    draw(false);
}

void TextProgressBar::finish()
{
    if (!m_started)
        return;
    m_done = m_total;
    draw(false);
    std::fputc('\n', stderr);
    std::fflush(stderr);
    m_started = false;
}

QString TextProgressBar::line() const
{
    const int percent = m_total > 0 ? int(m_done * 100 / m_total) : 100;
    const QString figure = QStringLiteral("%1%").arg(percent, 3);
    // caption, " [", the bar, "] ", the figure
    const int room = m_width - int(m_caption.size()) - 4 - int(figure.size()) - 1;
    const int cells = std::max(room, 10);
    const int filled = m_total > 0 ? int(m_done * cells / m_total) : cells;
    return m_caption + QStringLiteral(" [") + QString(filled, QLatin1Char('#'))
        + QString(cells - filled, QLatin1Char('.')) + QStringLiteral("] ") + figure;
}

void TextProgressBar::printLine(const QString &text)
{
    if (m_started)
        erase();
    std::fprintf(stdout, "%s\n", text.toLocal8Bit().constData());
    std::fflush(stdout);
    if (m_started)
        draw(true);
}

void TextProgressBar::draw(bool force)
{
    // Redraw only when the figure changes: a large copy would otherwise write
    // a line per block.
    const int percent = m_total > 0 ? int(m_done * 100 / m_total) : 100;
    if (!force && percent == m_drawnPercent)
        return;
    m_drawnPercent = percent;
    std::fprintf(stderr, "\r%s", line().toLocal8Bit().constData());
    std::fflush(stderr);
}

void TextProgressBar::erase()
{
    std::fprintf(stderr, "\r%s\r", QByteArray(m_width, ' ').constData());
    std::fflush(stderr);
}
