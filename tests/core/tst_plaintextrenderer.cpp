#include "core/plaintextrenderer.h"

#include <QFile>
#include <QtTest>

class tst_PlainTextRenderer : public QObject
{
    Q_OBJECT

private slots:
    void render_data();
    void render();
    void errors_data();
    void errors();
    void agreement_data();
    void agreement();
};

void tst_PlainTextRenderer::render_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<int>("width");
    QTest::addColumn<QString>("expected");

    QTest::newRow("empty body") << QByteArray() << 80 << "";
    QTest::newRow("plain text") << QByteArray("one two") << 80 << "one two";
    QTest::newRow("whitespace collapses") << QByteArray("  one \n\t two  ") << 80 << "one two";
    QTest::newRow("wraps at width") << QByteArray("aaa bbb ccc ddd") << 7 << "aaa bbb\nccc ddd";
    QTest::newRow("exact width fits") << QByteArray("aaaa bbbbb") << 10 << "aaaa bbbbb";
    QTest::newRow("one over width wraps") << QByteArray("aaaa bbbbbb") << 10 << "aaaa\nbbbbbb";
    QTest::newRow("long word on its own line") << QByteArray("a bbbbbbbbbbbb c") << 5 << "a\nbbbbbbbbbbbb\nc";
    QTest::newRow("paragraphs separated") << QByteArray("<p>one</p><p>two</p>") << 80 << "one\n\ntwo";
    QTest::newRow("headings are paragraphs")
        << QByteArray("<h1>A</h1><h2>B</h2><h3>C</h3><h4>D</h4><h5>E</h5>text") << 80
        << "A\n\nB\n\nC\n\nD\n\nE\n\ntext";
    QTest::newRow("upper-case tags") << QByteArray("<P>one</P><H2>two</H2>") << 80 << "one\n\ntwo";
    QTest::newRow("h6 is no paragraph") << QByteArray("<h6>a</h6> b") << 80 << "a b";
    QTest::newRow("inline elements join words")
        << QByteArray("<p>a<b>b</b>c <i>d</i> e</p>") << 80 << "abc d e";
    QTest::newRow("list items carry their paragraphs")
        << QByteArray("<ul><li><p>first</p></li><li><p>second</p></li></ul>") << 80 << "first\n\nsecond";
    QTest::newRow("list items without blocks run on")
        << QByteArray("<ul><li>first</li><li> second</li></ul>") << 80 << "first second";
    QTest::newRow("br ends the line") << QByteArray("a<br/>b") << 80 << "a\nb";
    QTest::newRow("two br leave an empty line") << QByteArray("a<br/><br/>b") << 80 << "a\n\nb";
    QTest::newRow("div is a block") << QByteArray("a<div>b</div>c") << 80 << "a\nb\nc";
    QTest::newRow("pre keeps lines") << QByteArray("<pre>a  b\n  c</pre>") << 80 << "a  b\n  c";
    QTest::newRow("pre is not wrapped") << QByteArray("<pre>aaaa bbbb</pre>") << 4 << "aaaa bbbb";
    QTest::newRow("div with white-space pre")
        << QByteArray("<div style=\"color: red; White-Space : Pre\">a  b\nc</div>") << 80 << "a  b\nc";
    QTest::newRow("div with other white-space")
        << QByteArray("<div style=\"white-space:pre-wrap\">a  b</div>") << 80 << "a b";
    QTest::newRow("blockquote indents")
        << QByteArray("<p>a</p><blockquote><p>b c</p></blockquote><p>d</p>") << 80 << "a\n\n    b c\n\nd";
    QTest::newRow("nested blockquote") << QByteArray("<blockquote>a<blockquote>b</blockquote>c</blockquote>")
                                       << 80 << "    a\n        b\n    c";
    QTest::newRow("indented text wraps within width")
        << QByteArray("<blockquote>aa bb cc</blockquote>") << 9 << "    aa bb\n    cc";
    QTest::newRow("entities") << QByteArray("a &amp; b &lt;c&gt; &#233;") << 80
                              << QString::fromUtf8("a & b <c> é");
    QTest::newRow("comments skipped") << QByteArray("a<!-- hidden --> b") << 80 << "a b";
}

void tst_PlainTextRenderer::render()
{
    QFETCH(QByteArray, body);
    QFETCH(int, width);
    QFETCH(QString, expected);

    const QByteArray document = "<html><head><title>t</title></head><body>" + body + "</body></html>";
    PlainTextRenderer renderer(width);
    QString text;
    QString error;
    QVERIFY2(renderer.render(document, &text, &error), qPrintable(error));
    QCOMPARE(text, expected);
}

void tst_PlainTextRenderer::errors_data()
{
    QTest::addColumn<QByteArray>("document");
    QTest::addColumn<QString>("pattern");
    QTest::newRow("no body") << QByteArray("<html><head/></html>") << "^body element not found$";
    QTest::newRow("unclosed element")
        << QByteArray("<html>\n<body>\n<p>text</body></html>") << "^.+ line: 3 column: \\d+$";
    QTest::newRow("empty document") << QByteArray() << "^.* line: \\d+ column: \\d+$";
    QTest::newRow("undeclared entity")
        << QByteArray("<html><body>a&nbsp;b</body></html>") << "^.+ line: 1 column: \\d+$";
}

void tst_PlainTextRenderer::errors()
{
    QFETCH(QByteArray, document);
    QFETCH(QString, pattern);
    PlainTextRenderer renderer(80);
    QString text;
    QString error;
    QVERIFY(!renderer.render(document, &text, &error));
    QVERIFY2(QRegularExpression(pattern).match(error).hasMatch(), qPrintable(error));
}

void tst_PlainTextRenderer::agreement_data()
{
    QTest::addColumn<int>("width");
    QTest::newRow("80") << 80;
    QTest::newRow("40") << 40;
    QTest::newRow("20") << 20;
}

void tst_PlainTextRenderer::agreement()
{
    QFETCH(int, width);
    QFile file(QStringLiteral(SETUP_SOURCE_DIR "/resources/license.html"));
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QByteArray document = file.readAll();
    QCOMPARE(document.size(), 10761);
    QVERIFY(document.startsWith("<!DOCTYPE HTML PUBLIC \"-//W3C//DTD HTML 4.01//EN\""));

    PlainTextRenderer renderer(width);
    QString text;
    QString error;
    QVERIFY2(renderer.render(document, &text, &error), qPrintable(error));
    const QStringList lines = text.split(QLatin1Char('\n'));
    QVERIFY(lines.size() > 50);
    QVERIFY(lines.first().startsWith(QStringLiteral("Tamrin Calvra")));
    const QString words = text.simplified();
    QVERIFY(words.contains(QStringLiteral("Tamrin Calvra for ARM End-User License Agreement This")));
    QVERIFY(words.contains(QStringLiteral("one at a time. A named-user license")));
    for (const QString &line : lines) {
        QVERIFY2(line.size() <= width || !line.trimmed().contains(QLatin1Char(' ')), qPrintable(line));
        QVERIFY(!line.endsWith(QLatin1Char(' ')));
    }
    // Blank lines separate blocks; never two in a row.
    QVERIFY(!text.contains(QStringLiteral("\n\n\n")));
}

QTEST_GUILESS_MAIN(tst_PlainTextRenderer)
#include "tst_plaintextrenderer.moc"
