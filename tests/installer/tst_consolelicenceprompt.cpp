#include "installer/consolelicenceprompt.h"

#include <QtTest>

#include <cstdio>

namespace {

// A stdio stream over a byte array, closed when it goes out of scope.
class MemoryStream
{
public:
    MemoryStream(QByteArray &buffer, const char *mode)
        : m_file(::fmemopen(buffer.data(), size_t(buffer.size()), mode))
    { }
    ~MemoryStream()
    {
        if (m_file)
            std::fclose(m_file);
    }
    MemoryStream(const MemoryStream &) = delete;
    MemoryStream &operator=(const MemoryStream &) = delete;
    FILE *get() const { return m_file; }

private:
    FILE *m_file;
};

} // namespace

class tst_ConsoleLicencePrompt : public QObject
{
    Q_OBJECT

private slots:
    void answer_data();
    void answer();
    void showsEveryLineWithoutPaging();
};

void tst_ConsoleLicencePrompt::answer_data()
{
    QTest::addColumn<QByteArray>("input");
    QTest::addColumn<bool>("accepted");
    QTest::addColumn<int>("questions");

    QTest::newRow("yes") << QByteArray("yes\n") << true << 1;
    QTest::newRow("YES") << QByteArray("YES\n") << true << 1;
    QTest::newRow("Yes") << QByteArray("Yes\n") << true << 1;
    QTest::newRow("no") << QByteArray("no\n") << false << 1;
    QTest::newRow("No") << QByteArray("nO\n") << false << 1;
    QTest::newRow("end of input") << QByteArray() << false << 1;
    QTest::newRow("y asks again") << QByteArray("y\nyes\n") << true << 2;
    QTest::newRow("n asks again") << QByteArray("n\nno\n") << false << 2;
    QTest::newRow("blanks ask again") << QByteArray(" yes\nyes \nyes\n") << true << 3;
    QTest::newRow("empty line asks again") << QByteArray("\nno\n") << false << 2;
    QTest::newRow("yes without line feed at the end") << QByteArray("yes") << false << 2;
    QTest::newRow("end after wrong answers") << QByteArray("maybe\nsure\n") << false << 3;
    QTest::newRow("carriage return is no answer") << QByteArray("yes\r\nyes\n") << true << 2;
    // 63 characters are one reply; the rest of the line arrives as another.
    QTest::newRow("long line in two pieces") << QByteArray(63, 'x') + "yes\n" << true << 2;
    QTest::newRow("long line then no") << QByteArray(70, 'x') + "\nno\n" << false << 3;
    QTest::newRow("line of 62 and feed is one reply") << QByteArray(62, 'x') + "\nyes\n" << true << 2;
}

void tst_ConsoleLicencePrompt::answer()
{
    QFETCH(QByteArray, input);
    QFETCH(bool, accepted);
    QFETCH(int, questions);

    QByteArray inBuffer = input.isEmpty() ? QByteArray(1, '\0') : input;
    QByteArray outBuffer(4096, '\0');
    bool result = false;
    {
        MemoryStream in(inBuffer, "r");
        if (input.isEmpty())
            std::fgetc(in.get()); // leave the stream at its end
        MemoryStream out(outBuffer, "w");
        QVERIFY(in.get() && out.get());
        ConsoleLicencePrompt prompt(false, 25, in.get(), out.get());
        result = prompt.ask({ QStringLiteral("line one"), QStringLiteral("line two") });
    }
    QCOMPARE(result, accepted);
    const QByteArray written(outBuffer.constData());
    QVERIFY(written.startsWith("line one\nline two\n"));
    QCOMPARE(int(written.count("Do you accept the agreement? [yes/no] ")), questions);
    QVERIFY(!written.contains("accepted"));
}

void tst_ConsoleLicencePrompt::showsEveryLineWithoutPaging()
{
    QStringList lines;
    for (int i = 0; i < 100; ++i)
        lines.append(QStringLiteral("line %1").arg(i));
    QByteArray inBuffer("no\n");
    QByteArray outBuffer(8192, '\0');
    {
        MemoryStream in(inBuffer, "r");
        MemoryStream out(outBuffer, "w");
        ConsoleLicencePrompt prompt(false, 5, in.get(), out.get());
        QVERIFY(!prompt.ask(lines));
    }
    const QByteArray written(outBuffer.constData());
    QVERIFY(!written.contains("<Press a return to continue>"));
    QVERIFY(written.startsWith(lines.join(QLatin1Char('\n')).toUtf8() + "\nDo you accept"));
}

QTEST_GUILESS_MAIN(tst_ConsoleLicencePrompt)
#include "tst_consolelicenceprompt.moc"
