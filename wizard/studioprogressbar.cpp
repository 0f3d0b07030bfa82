#include "wizard/studioprogressbar.h"

#include <QPainter>
#include <QStyle>

StudioProgressBar::StudioProgressBar(QWidget *parent)
    : QFrame(parent)
{
    setFrameStyle(QFrame::NoFrame);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
}

StudioProgressBar::~StudioProgressBar() = default;

int StudioProgressBar::percentage() const
{
    if (m_progress < 0)
        return -1;
    if (m_totalSteps <= 0)
        return 100;
    return int(qBound(qint64(0), qint64(m_progress) * 100 / m_totalSteps, qint64(100)));
}

QSize StudioProgressBar::sizeHint() const
{
    const int frame = style()->pixelMetric(QStyle::PM_DefaultFrameWidth, nullptr, this);
    return QSize(
        7 * frame + 4 * fontMetrics().horizontalAdvance(QLatin1Char('0')), fontMetrics().height() + 8);
}

void StudioProgressBar::setTotalSteps(int steps)
{
    m_totalSteps = steps;
    update();
}

void StudioProgressBar::setProgress(int progress)
{
    m_progress = progress;
    update();
}

void StudioProgressBar::reset()
{
    setProgress(-1);
}

void StudioProgressBar::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    const QRect area = rect().adjusted(0, 0, -1, -1);
    const QPalette &colours = palette();
    painter.setPen(colours.color(QPalette::Mid));
    painter.setBrush(colours.color(QPalette::Base));
    painter.drawRect(area);
    const int percent = percentage();
    if (percent < 0)
        return;
    QRect done = area.adjusted(1, 1, 0, 0);
    done.setWidth(done.width() * percent / 100);
    painter.fillRect(done, colours.color(QPalette::Highlight));
    const QString text = QString::number(percent) + QLatin1Char('%');
    // The text changes colour where the bar has passed under it.
    painter.setPen(colours.color(QPalette::Text));
    painter.drawText(area, Qt::AlignCenter, text);
    painter.setClipRect(done);
    painter.setPen(colours.color(QPalette::HighlightedText));
    painter.drawText(area, Qt::AlignCenter, text);
}
