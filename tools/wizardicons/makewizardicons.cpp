// Draws the wizard's header image, feature-state icons and question icon.
// Usage: make-wizard-icons <resources folder>
#include <QGuiApplication>
#include <QImage>
#include <QLinearGradient>
#include <QPainter>
#include <QPainterPath>
#include <QRadialGradient>

#include <cstdio>

namespace {

const QColor Teal(0x0f, 0x76, 0x8c);
const QColor DeepTeal(0x0a, 0x4f, 0x5e);
const QColor Amber(0xf2, 0xa9, 0x00);
const QColor Green(0x2e, 0x9d, 0x47);
const QColor Grey(0x8a, 0x8f, 0x94);
const QColor Red(0xc6, 0x3b, 0x2f);

QImage canvas(int size)
{
    QImage image(size, size, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    return image;
}

// The product mark: a teal tile carrying a chip outline with an amber arc,
// the development environment's subject (embedded boards) in one glyph.
QImage header()
{
    QImage image = canvas(48);
    QPainter p(&image);
    p.setRenderHint(QPainter::Antialiasing);
    QLinearGradient tile(0, 0, 0, 48);
    tile.setColorAt(0, Teal.lighter(115));
    tile.setColorAt(1, DeepTeal);
    p.setPen(Qt::NoPen);
    p.setBrush(tile);
    p.drawRoundedRect(QRectF(2, 2, 44, 44), 9, 9);
    // Chip body and its pins.
    p.setPen(QPen(Qt::white, 2));
    p.setBrush(Qt::NoBrush);
    p.drawRoundedRect(QRectF(14, 14, 20, 20), 3, 3);
    for (int i = 0; i < 3; ++i) {
        const qreal at = 18 + i * 6;
        p.drawLine(QPointF(at, 9), QPointF(at, 13));
        p.drawLine(QPointF(at, 35), QPointF(at, 39));
        p.drawLine(QPointF(9, at), QPointF(13, at));
        p.drawLine(QPointF(35, at), QPointF(39, at));
    }
    p.setPen(QPen(Amber, 3, Qt::SolidLine, Qt::RoundCap));
    p.drawArc(QRectF(18, 18, 12, 12), 40 * 16, 280 * 16);
    return image;
}

// A small drive with a state mark at its lower right.
QImage feature(const QColor &drive, int mark)
{
    QImage image = canvas(16);
    QPainter p(&image);
    p.setRenderHint(QPainter::Antialiasing);
    p.setPen(QPen(drive.darker(150), 1));
    p.setBrush(drive);
    p.drawRoundedRect(QRectF(1.5, 4.5, 12, 7), 1.5, 1.5);
    p.setPen(Qt::NoPen);
    p.setBrush(Qt::white);
    p.drawEllipse(QRectF(10, 7, 2, 2));
    QPainterPath badge;
    badge.addEllipse(QRectF(8, 8, 7.5, 7.5));
    switch (mark) {
    case 0: // everything: a green disc with a tick
        p.setBrush(Green);
        p.drawPath(badge);
        p.setPen(QPen(Qt::white, 1.4, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
        p.drawPolyline(QPolygonF({ QPointF(9.8, 11.9), QPointF(11.3, 13.4), QPointF(13.8, 10.2) }));
        break;
    case 1: // in part: an amber half disc
        p.setBrush(Qt::white);
        p.drawPath(badge);
        p.setPen(QPen(Amber.darker(120), 1));
        p.setBrush(Amber);
        p.drawPie(QRectF(8.5, 8.5, 6.5, 6.5), 90 * 16, 180 * 16);
        p.setBrush(Qt::NoBrush);
        p.drawEllipse(QRectF(8.5, 8.5, 6.5, 6.5));
        break;
    default: // nothing: a red disc with a cross
        p.setBrush(Red);
        p.drawPath(badge);
        p.setPen(QPen(Qt::white, 1.4, Qt::SolidLine, Qt::RoundCap));
        p.drawLine(QPointF(10.3, 10.3), QPointF(13.2, 13.2));
        p.drawLine(QPointF(13.2, 10.3), QPointF(10.3, 13.2));
        break;
    }
    return image;
}

QImage question()
{
    QImage image = canvas(32);
    QPainter p(&image);
    p.setRenderHint(QPainter::Antialiasing);
    QRadialGradient disc(QPointF(12, 10), 22);
    disc.setColorAt(0, Teal.lighter(140));
    disc.setColorAt(1, DeepTeal);
    p.setPen(Qt::NoPen);
    p.setBrush(disc);
    p.drawEllipse(QRectF(1, 1, 30, 30));
    p.setPen(QPen(Qt::white, 3.2, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
    QPainterPath mark;
    mark.moveTo(11.5, 12);
    mark.cubicTo(11.5, 6.5, 20.5, 6.5, 20.5, 12);
    mark.cubicTo(20.5, 15.5, 16, 15.5, 16, 19.5);
    p.setBrush(Qt::NoBrush);
    p.drawPath(mark);
    p.setPen(Qt::NoPen);
    p.setBrush(Qt::white);
    p.drawEllipse(QRectF(14.1, 22.2, 3.8, 3.8));
    return image;
}

} // namespace

int main(int argc, char **argv)
{
    QGuiApplication app(argc, argv);
    if (argc != 2) {
        std::fprintf(stderr, "usage: make-wizard-icons <resources folder>\n");
        return 1;
    }
    const QString folder = QString::fromLocal8Bit(argv[1]) + QLatin1Char('/');
    const struct
    {
        const char *name;
        QImage image;
    } images[] = {
        { "header.png", header() },
        { "feature-installed.png", feature(Grey, 0) },
        { "feature-partial.png", feature(Grey, 1) },
        { "feature-none.png", feature(Grey, 2) },
        { "question.png", question() },
    };
    for (const auto &entry : images) {
        if (!entry.image.save(folder + QLatin1String(entry.name))) {
            std::fprintf(stderr, "cannot write %s\n", entry.name);
            return 1;
        }
    }
    return 0;
}
