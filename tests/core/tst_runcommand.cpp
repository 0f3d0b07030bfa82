#include "core/runcommand.h"

#include <QTemporaryDir>
#include <QtTest>

class tst_RunCommand : public QObject
{
    Q_OBJECT

private slots:
    void run_data();
    void run();
    void largeOutputOnBothPipes();
};

void tst_RunCommand::run_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<bool>("capture");
    QTest::addColumn<QString>("directory");
    QTest::addColumn<QByteArray>("before");
    QTest::addColumn<int>("status");
    QTest::addColumn<QByteArray>("out");
    QTest::addColumn<QByteArray>("err");
    QTest::addColumn<QByteArray>("file");

    // @FILE@ stands for a file in a fresh temporary folder, @DIR@ for that
    // folder; "before" is the file's content before the run (null: no file).
    const QString both = QStringLiteral("printf out; printf err >&2");
    const QByteArray none;
    const QByteArray old("old|");

    QTest::newRow("status 0") << QStringList { "sh", "-c", "exit 0" } << false << "" << none << 0 << none
                              << none << none;
    QTest::newRow("status 3") << QStringList { "sh", "-c", "exit 3" } << false << "" << none << 3 << none
                              << none << none;
    QTest::newRow("status 255 is -1")
        << QStringList { "sh", "-c", "exit 255" } << false << "" << none << -1 << none << none << none;
    QTest::newRow("status 200 is -56")
        << QStringList { "sh", "-c", "exit 200" } << true << "" << none << -56 << none << none << none;
    QTest::newRow("status 128 is -128")
        << QStringList { "sh", "-c", "exit 128" } << false << "" << none << -128 << none << none << none;
    QTest::newRow("empty list") << QStringList() << true << "" << none << -1 << none << none << none;
    QTest::newRow("missing program path")
        << QStringList { "/nonexistent/program" } << true << "" << none << -1 << none << none << none;
    QTest::newRow("missing program on PATH")
        << QStringList { "setup-no-such-program" } << false << "" << none << -1 << none << none << none;
    QTest::newRow("arguments passed as they are")
        << QStringList { "printf", "%s|", "a b", "$HOME", "*", "a>b", "" } << true << "" << none << 0
        << QByteArray("a b|$HOME|*|a>b||") << none << none;
    QTest::newRow("capture both") << QStringList { "sh", "-c", both } << true << "" << none << 0
                                  << QByteArray("out") << QByteArray("err") << none;
    QTest::newRow("working directory")
        << QStringList { "pwd" } << true << "@DIR@" << none << 0 << QByteArray("@DIR@\n") << none << none;
    QTest::newRow("missing working directory")
        << QStringList { "pwd" } << true << "/nonexistent/dir" << none << -1 << none << none << none;

    QTest::newRow(">") << QStringList { "sh", "-c", both, ">", "@FILE@" } << true << "" << old << 0 << none
                       << QByteArray("err") << QByteArray("out");
    QTest::newRow("1>") << QStringList { "sh", "-c", both, "1>", "@FILE@" } << true << "" << old << 0 << none
                        << QByteArray("err") << QByteArray("out");
    QTest::newRow(">>") << QStringList { "sh", "-c", both, ">>", "@FILE@" } << true << "" << old << 0 << none
                        << QByteArray("err") << QByteArray("old|out");
    QTest::newRow("1>>") << QStringList { "sh", "-c", both, "1>>", "@FILE@" } << true << "" << old << 0
                         << none << QByteArray("err") << QByteArray("old|out");
    QTest::newRow("2>") << QStringList { "sh", "-c", both, "2>", "@FILE@" } << true << "" << old << 0
                        << QByteArray("out") << none << QByteArray("err");
    QTest::newRow("2>>") << QStringList { "sh", "-c", both, "2>>", "@FILE@" } << true << "" << old << 0
                         << QByteArray("out") << none << QByteArray("old|err");
    QTest::newRow("&>") << QStringList { "sh", "-c", both, "&>", "@FILE@" } << true << "" << old << 0 << none
                        << none << QByteArray("outerr");
    QTest::newRow("&>>") << QStringList { "sh", "-c", both, "&>>", "@FILE@" } << true << "" << old << 0
                         << none << none << QByteArray("old|outerr");
    QTest::newRow("> creates the file") << QStringList { "sh", "-c", both, ">", "@FILE@" } << false << ""
                                        << none << 0 << none << none << QByteArray("out");
    QTest::newRow("operator first in the list") << QStringList { ">", "@FILE@", "printf", "x" } << false << ""
                                                << none << 0 << none << none << QByteArray("x");
    QTest::newRow("only the first operator")
        << QStringList { "printf", "%s|", ">", "@FILE@", "2>", "b" } << true << "" << none << 0 << none
        << none << QByteArray("2>|b|");
    QTest::newRow("redirection with a failing status")
        << QStringList { "sh", "-c", "printf x; exit 7", ">", "@FILE@" } << false << "" << none << 7 << none
        << none << QByteArray("x");
    QTest::newRow("operator without a file")
        << QStringList { "sh", "-c", "exit 0", ">" } << true << "" << none << -1 << none << none << none;
    QTest::newRow("unwritable redirection file")
        << QStringList { "sh", "-c", "exit 0", ">", "/nonexistent/dir/file" } << true << "" << none << -1
        << none << none << none;
}

void tst_RunCommand::run()
{
    QFETCH(QStringList, arguments);
    QFETCH(bool, capture);
    QFETCH(QString, directory);
    QFETCH(QByteArray, before);
    QFETCH(int, status);
    QFETCH(QByteArray, out);
    QFETCH(QByteArray, err);
    QFETCH(QByteArray, file);

    QTemporaryDir temporary;
    QVERIFY(temporary.isValid());
    const QString path = temporary.filePath(QStringLiteral("output"));
    arguments.replaceInStrings(QStringLiteral("@FILE@"), path);
    directory.replace(QStringLiteral("@DIR@"), temporary.path());
    out.replace("@DIR@", QFile::encodeName(temporary.path()));
    if (!before.isNull()) {
        QFile existing(path);
        QVERIFY(existing.open(QIODevice::WriteOnly));
        existing.write(before);
    }

    QByteArray gotOut;
    QByteArray gotErr;
    CommandOutput receivers;
    receivers.standardOutput = [&gotOut](const QByteArray &data) {
        gotOut += data;
    };
    receivers.standardError = [&gotErr](const QByteArray &data) {
        gotErr += data;
    };
    QCOMPARE(runCommand(arguments, directory, capture, receivers), status);
    QCOMPARE(gotOut, out);
    QCOMPARE(gotErr, err);

    QFile written(path);
    if (file.isNull() && before.isNull()) {
        QVERIFY(!written.exists());
    } else if (!file.isNull()) {
        QVERIFY(written.open(QIODevice::ReadOnly));
        QCOMPARE(written.readAll(), file);
    }
}

void tst_RunCommand::largeOutputOnBothPipes()
{
    // More than a pipe holds on both streams: a reader that waits on one
    // pipe while the child blocks on the other would hang here.
    QByteArray gotOut;
    QByteArray gotErr;
    CommandOutput receivers;
    receivers.standardOutput = [&gotOut](const QByteArray &data) {
        gotOut += data;
    };
    receivers.standardError = [&gotErr](const QByteArray &data) {
        gotErr += data;
    };
    const QStringList arguments { "sh", "-c",
        "i=0; while [ $i -lt 40 ]; do head -c 5000 /dev/zero | tr '\\0' o; head -c 5000 /dev/zero | tr '\\0' "
        "e >&2; "
        "i=$((i+1)); done" };
    QCOMPARE(runCommand(arguments, QString(), true, receivers), 0);
    QCOMPARE(gotOut, QByteArray(200000, 'o'));
    QCOMPARE(gotErr, QByteArray(200000, 'e'));
}

QTEST_GUILESS_MAIN(tst_RunCommand)
#include "tst_runcommand.moc"
