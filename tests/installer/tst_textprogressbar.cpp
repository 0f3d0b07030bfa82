#include "installer/textprogressbar.h"

#include <QtTest>

class tst_TextProgressBar : public QObject
{
    Q_OBJECT

private slots:
    void line_data();
    void line();
};

void tst_TextProgressBar::line_data()
{
    QTest::addColumn<int>("width");
    QTest::addColumn<qint64>("total");
    QTest::addColumn<qint64>("done");
    QTest::addColumn<QString>("figure");
    QTest::addColumn<int>("filled");

    QTest::newRow("start") << 80 << qint64(1000) << qint64(0) << "  0%" << 0;
    QTest::newRow("half") << 80 << qint64(1000) << qint64(500) << " 50%" << 29;
    QTest::newRow("full") << 80 << qint64(1000) << qint64(1000) << "100%" << 58;
    QTest::newRow("capped at total") << 80 << qint64(10) << qint64(25) << "100%" << 58;
    QTest::newRow("nothing to do is done") << 80 << qint64(0) << qint64(0) << "100%" << 58;
    QTest::newRow("narrow") << 40 << qint64(4) << qint64(1) << " 25%" << 4;
    QTest::newRow("too narrow keeps ten cells") << 10 << qint64(10) << qint64(10) << "100%" << 10;
}

void tst_TextProgressBar::line()
{
    QFETCH(int, width);
    QFETCH(qint64, total);
    QFETCH(qint64, done);
    QFETCH(QString, figure);
    QFETCH(int, filled);

    TextProgressBar bar(width);
    bar.start(QStringLiteral("Copying files"), total);
    bar.advance(done);
    const QString line = bar.line();
    QVERIFY(line.startsWith(QStringLiteral("Copying files [")));
    QVERIFY(line.endsWith(QStringLiteral("] ") + figure));
    QCOMPARE(int(line.count(QLatin1Char('#'))), filled);
    if (width >= 40) // leaves the last column free, so the terminal never wraps
        QCOMPARE(int(line.size()), width - 1);
}

QTEST_GUILESS_MAIN(tst_TextProgressBar)
#include "tst_textprogressbar.moc"
