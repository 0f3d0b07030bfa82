#include "core/installsilentquestion.h"
#include "core/macrotable.h"

#include <QTest>

#include <cstdio>
#include <memory>

namespace {

struct FileCloser
{
    void operator()(std::FILE *file) const { std::fclose(file); }
};

QString readAll(std::FILE *file)
{
    std::fflush(file);
    std::rewind(file);
    QByteArray bytes;
    char block[256];
    size_t got;
    while ((got = std::fread(block, 1, sizeof block, file)) > 0)
        bytes.append(block, qsizetype(got));
    return QString::fromLocal8Bit(bytes);
}

} // namespace

class tst_InstallSilentQuestion : public QObject
{
    Q_OBJECT

private slots:
    void answers_data();
    void answers();
    void locateFileFails();
};

void tst_InstallSilentQuestion::answers_data()
{
    QTest::addColumn<QString>("heading");
    QTest::addColumn<int>("buttons");
    QTest::addColumn<int>("defaultButton");
    QTest::addColumn<int>("expected");
    QTest::addColumn<QString>("line");

    const int five = InstallQuestion::Yes | InstallQuestion::YesToAll | InstallQuestion::No
        | InstallQuestion::NoToAll | InstallQuestion::Cancel;
    QTest::newRow("newer: No")
        << "Newer version of a.txt already exists" << five << int(InstallQuestion::No)
        << int(InstallQuestion::No)
        << "question: Newer version of a.txt already exists -- answered No (default)\n";
    QTest::newRow("older: Yes")
        << "Older version of a.txt already exists" << five << int(InstallQuestion::Yes)
        << int(InstallQuestion::Yes)
        << "question: Older version of a.txt already exists -- answered Yes (default)\n";
    QTest::newRow("failure: Yes") << "Binary Files Installation Failed"
                                  << int(InstallQuestion::Yes | InstallQuestion::No)
                                  << int(InstallQuestion::Yes) << int(InstallQuestion::Yes)
                                  << "question: Binary Files Installation Failed -- answered Yes (default)\n";
    QTest::newRow("busy file: Ignore, never Retry")
        << "Cannot remove <b>x</b>"
        << int(InstallQuestion::Retry | InstallQuestion::Ignore | InstallQuestion::Cancel)
        << int(InstallQuestion::Retry) << int(InstallQuestion::Ignore)
        << "question: Cannot remove x -- answered Ignore (Retry is not chosen silently)\n";
    QTest::newRow("Retry without Ignore: Cancel")
        << "<p>Locked</p><p>again</p>" << int(InstallQuestion::Retry | InstallQuestion::Cancel)
        << int(InstallQuestion::Retry) << int(InstallQuestion::Cancel)
        << "question: Locked again -- answered Cancel (Retry is not chosen silently)\n";
    QTest::newRow("macros expanded") << "$(TstSilentName) Removal Failed"
                                     << int(InstallQuestion::Yes | InstallQuestion::No)
                                     << int(InstallQuestion::Yes) << int(InstallQuestion::Yes)
                                     << "question: Calvra Removal Failed -- answered Yes (default)\n";
}

void tst_InstallSilentQuestion::answers()
{
    QFETCH(QString, heading);
    QFETCH(int, buttons);
    QFETCH(int, defaultButton);
    QFETCH(int, expected);
    QFETCH(QString, line);

    macros().set(QStringLiteral("TstSilentName"), QStringLiteral("Calvra"));
    std::unique_ptr<std::FILE, FileCloser> log(std::tmpfile());
    QVERIFY(log);
    InstallSilentQuestion question(log.get());
    QCOMPARE(question.ask(heading, QStringLiteral("<p>text</p>"), buttons, defaultButton), expected);
    QCOMPARE(readAll(log.get()), line);
}

void tst_InstallSilentQuestion::locateFileFails()
{
    std::unique_ptr<std::FILE, FileCloser> log(std::tmpfile());
    QVERIFY(log);
    InstallSilentQuestion question(log.get());
    QCOMPARE(question.locateFile(QStringLiteral("/src/libQtCore.so.4")), QString());
    QCOMPARE(readAll(log.get()),
        QStringLiteral(
            "question: Cannot find the file named /src/libQtCore.so.4 -- not located (no one to ask)\n"));
}

QTEST_GUILESS_MAIN(tst_InstallSilentQuestion)
#include "tst_installsilentquestion.moc"
