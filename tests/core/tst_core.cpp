// The core library through its public behaviour: macro expansion, the two
// command-line passes, commands run by argument list, files replaced without
// writing through what stands in their place, the agreement as plain text and
// the answers of a silent run, and SHA-256 against the portable one.
#include "core/entrycommandline.h"
#include "core/fileutils.h"
#include "core/hexception.h"
#include "core/installcommandline.h"
#include "core/installsilentquestion.h"
#include "core/macrotable.h"
#include "core/places.h"
#include "core/plaintextrenderer.h"
#include "core/replacementfile.h"
#include "core/runcommand.h"
#include "core/sha256.h"

#include <QTemporaryDir>
#include <QtTest>

#include <cstdio>
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

using Assignments = QList<QPair<QString, QString>>;

namespace {

QByteArray readAll(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<missing>");
}

void writeFile(const QString &path, const QByteArray &content, mode_t mode)
{
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    file.write(content);
    file.close();
    QVERIFY(::chmod(QFile::encodeName(path).constData(), mode) == 0);
}

} // namespace

class tst_Core : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void expand_data();
    void expand();
    void cleanAndEscape_data();
    void cleanAndEscape();
    void entryCommandLine_data();
    void entryCommandLine();
    void installCommandLine_data();
    void installCommandLine();
    void runCommand_data();
    void runCommand();
    void replacesWithoutWritingThrough_data();
    void replacesWithoutWritingThrough();
    void madeAtItsName_data();
    void madeAtItsName();
    void render_data();
    void render();
    void silentAnswers_data();
    void silentAnswers();
    void sha256_data();
    void sha256();

private:
    QTemporaryDir m_home;
};

void tst_Core::initTestCase()
{
    QVERIFY(m_home.isValid());
    qputenv("HOME", QFile::encodeName(m_home.path()));
}

void tst_Core::expand_data()
{
    QTest::addColumn<QStringList>("options"); // a second command-line pass first
    QTest::addColumn<Assignments>("assignments");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("expected");
    const Assignments none;
    const QString home = m_home.path();
    QTest::newRow("nested to the end") << QStringList() << none << "$(InstallerDir)"
                                       << "/usr/share/tamrin_calvra_for_arm_5.50a/bin";
    QTest::newRow("undefined and malformed kept")
        << QStringList() << none << "$(Unknown) $(company) $( Company) $Company $(Company"
        << "$(Unknown) $(company) $( Company) $Company $(Company";
    QTest::newRow("value built from names sorted after it")
        << QStringList() << Assignments { { "A", "$(B)$(C)" }, { "B", "b" }, { "C", "$(B)c" } } << "[$(A)]"
        << "[bbc]";
    QTest::newRow("cycle settles") << QStringList() << Assignments { { "A", "$(B)" }, { "B", "$(A)" } }
                                   << "$(A)"
                                   << "$(A)";
    QTest::newRow("a value holding itself twice stops growing")
        << QStringList() << Assignments { { "A", "$(A)$(A)" } } << "$(A)"
        << QStringLiteral("$(A)").repeated(MacroTable::MaxGrowth / 4);
    QTest::newRow("reference assembled by expansion")
        << QStringList() << Assignments { { "Open", "$(" }, { "N", "Company)" } } << "$(Open)$(N)"
        << "Tamrin";
    QTest::newRow("--set keeps the value unexpanded")
        << QStringList { "--set", "DestDir=$(HomeDir)/a", "--set", "HomeDir=/h" } << none << "$(InstallerDir)"
        << "/h/a/bin";
    QTest::newRow("--destination expanded when given")
        << QStringList { "--destination", "$(HomeDir)/p", "--set", "HomeDir=/other" } << none << "$(DestDir)"
        << home + "/p";
    QTest::newRow("--set splits at the first equals, ignores no name")
        << QStringList { "--set", "A=b=c", "--set", "=Company", "--set", "Company" } << none
        << "$(A) $(Company)"
        << "b=c Tamrin";
    QTest::newRow("user mode moves the default")
        << QStringList { "--user-mode-install" } << none << "$(DestDir)"
        << home + "/.local/share/tamrin_calvra_for_arm_5.50a";
}

void tst_Core::expand()
{
    QFETCH(QStringList, options);
    QFETCH(Assignments, assignments);
    QFETCH(QString, text);
    QFETCH(QString, expected);
    MacroTable table;
    table.setDefaults();
    for (const auto &assignment : assignments)
        table.set(assignment.first, assignment.second);
    if (!options.isEmpty()) {
        InstallCommandLine commandLine;
        commandLine.parse(QStringList { "Setup", "--user-mode-install" } + options, table);
    }
    QCOMPARE(table.expand(text), expected);
    // A plain set keeps a default's path mark; a name looked up is listed from then on, empty.
    QVERIFY(table.isPath(QStringLiteral("DestDir")) && !table.isPath(QStringLiteral("DestName")));
    QVERIFY(table.get(QStringLiteral("Looked up")).isEmpty()
        && table.names().contains(QStringLiteral("Looked up")));
}

void tst_Core::cleanAndEscape_data()
{
    QTest::addColumn<bool>("escape"); // else clean the path
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("expected");
    QTest::newRow("dots and doubled separators") << false << "/a/./b//c/../d/"
                                                 << "/a/b/d";
    QTest::newRow("above the top of a relative path") << false << "../x/.."
                                                      << "";
    QTest::newRow("above the root") << false << "/../etc"
                                    << "/etc";
    QTest::newRow("every special character") << true << "a\\{}[]():?^$.+*,b"
                                             << "a\\\\\\{\\}\\[\\]\\(\\)\\:\\?\\^\\$\\.\\+\\*\\,b";
    QTest::newRow("an expanded path matches itself") << true << "/opt/c++ (x)"
                                                     << "/opt/c\\+\\+ \\(x\\)";
}

void tst_Core::cleanAndEscape()
{
    QFETCH(bool, escape);
    QFETCH(QString, text);
    QFETCH(QString, expected);
    QCOMPARE(escape ? MacroTable::escapeForPattern(text) : Places::cleanPath(text), expected);
    if (escape)
        QVERIFY(
            QRegularExpression(QStringLiteral("^") + expected + QStringLiteral("$")).match(text).hasMatch());
}

void tst_Core::entryCommandLine_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<int>("outcome");
    QTest::addColumn<QString>("copyTo");
    QTest::addColumn<QString>("dataFile");
    QTest::addColumn<uint>("offset");
    QTest::addColumn<bool>("progress");
    const int go = EntryCommandLine::Continue;
    QTest::newRow("copy mode, a value may start with a dash")
        << QStringList { "--copy-files-to", "--help", "--silent" } << go << "--help"
        << "" << 0u << false;
    QTest::newRow("data file and hexadecimal offset")
        << QStringList { "--data-file", "f.dat", "--data-offset", "1A2b" } << go << ""
        << "f.dat" << 0x1a2bu << true;
    QTest::newRow("offset beyond 32 bits is 0") << QStringList { "--data-offset", "100000000" } << go << ""
                                                << "" << 0u << true;
}

void tst_Core::entryCommandLine()
{
    QFETCH(QStringList, arguments);
    QFETCH(int, outcome);
    QFETCH(QString, copyTo);
    QFETCH(QString, dataFile);
    QFETCH(uint, offset);
    QFETCH(bool, progress);
    EntryCommandLine commandLine;
    QCOMPARE(int(commandLine.parse(QStringList { "Setup" } + arguments)), outcome);
    if (outcome != EntryCommandLine::Continue)
        return;
    QCOMPARE(commandLine.copyFilesMode(), !copyTo.isEmpty());
    QCOMPARE(commandLine.copyDestination(), copyTo);
    QCOMPARE(commandLine.dataFile(), dataFile);
    QCOMPARE(uint(commandLine.dataOffset()), offset);
    QCOMPARE(commandLine.showProgress(), progress);
}

void tst_Core::installCommandLine_data()
{
    QTest::addColumn<QStringList>("arguments"); // the program path first
    QTest::addColumn<int>("mode");
    QTest::addColumn<qint64>("offset");
    QTest::addColumn<QString>("error");
    using namespace InstallMode;
    QTest::newRow("uninstall in the name")
        << QStringList { "/opt/bin/Uninstall-x" } << int(Remove) << qint64(0) << "";
    QTest::newRow("uninstall only in the folder")
        << QStringList { "/uninstall/Setup" } << int(Typical) << qint64(0) << "";
    QTest::newRow("modify beats remove beats repair")
        << QStringList { "uninstall", "--repair", "--remove", "--modify" } << int(Modify) << qint64(0) << "";
    QTest::newRow("remove beats repair")
        << QStringList { "Setup", "--repair", "--remove" } << int(Remove) << qint64(0) << "";
    QTest::newRow("offset beyond 32 bits") << QStringList { "Setup", "--data-offset", "123456789a" }
                                           << int(Typical) << qint64(0x123456789a) << "";
    QTest::newRow("first pass options are unknown here") << QStringList { "Setup",
        "--verbose" } << 0 << qint64(0) << "Unknown command line option: '--verbose'";
}

void tst_Core::installCommandLine()
{
    QFETCH(QStringList, arguments);
    QFETCH(int, mode);
    QFETCH(qint64, offset);
    QFETCH(QString, error);
    MacroTable table;
    InstallCommandLine commandLine;
    try {
        commandLine.parse(arguments + QStringList { "--user-mode-install" }, table);
        QCOMPARE(QString(), error);
    } catch (const HException &e) {
        QCOMPARE(e.message(), error);
        return;
    }
    QCOMPARE(int(commandLine.mode()), mode);
    QCOMPARE(commandLine.dataOffset(), offset);
    QVERIFY(!commandLine.rootRequired());
}

void tst_Core::runCommand_data()
{
    QTest::addColumn<QStringList>("arguments"); // @FILE@: a file in a fresh folder, holding "old|"
    QTest::addColumn<int>("status");
    QTest::addColumn<QByteArray>("out");
    QTest::addColumn<QByteArray>("err");
    QTest::addColumn<QByteArray>("file");
    const QString both = QStringLiteral("printf out; printf err >&2");
    const QByteArray none;
    const QByteArray old("old|");
    QTest::newRow("status 3") << QStringList { "sh", "-c", "exit 3" } << 3 << none << none << old;
    QTest::newRow("status 200 is -56")
        << QStringList { "sh", "-c", "exit 200" } << -56 << none << none << old;
    QTest::newRow("missing program") << QStringList { "/nonexistent/program" } << -1 << none << none << old;
    QTest::newRow("no shell reads the arguments")
        << QStringList { "printf", "%s|", "a b", "$HOME", "*", "a>b", "" } << 0
        << QByteArray("a b|$HOME|*|a>b||") << none << old;
    QTest::newRow(">") << QStringList { "sh", "-c", both, ">", "@FILE@" } << 0 << none << QByteArray("err")
                       << QByteArray("out");
    QTest::newRow(">>") << QStringList { "sh", "-c", both, ">>", "@FILE@" } << 0 << none << QByteArray("err")
                        << QByteArray("old|out");
    QTest::newRow("2>>") << QStringList { "sh", "-c", both, "2>>", "@FILE@" } << 0 << QByteArray("out")
                         << none << QByteArray("old|err");
    QTest::newRow("&>") << QStringList { "sh", "-c", both, "&>", "@FILE@" } << 0 << none << none
                        << QByteArray("outerr");
    QTest::newRow("only the first operator") << QStringList { "printf", "%s|", ">", "@FILE@", "2>", "b" } << 0
                                             << none << none << QByteArray("2>|b|");
    QTest::newRow("operator without a file")
        << QStringList { "sh", "-c", "exit 0", ">" } << -1 << none << none << old;
}

void tst_Core::runCommand()
{
    QFETCH(QStringList, arguments);
    QFETCH(int, status);
    QFETCH(QByteArray, out);
    QFETCH(QByteArray, err);
    QFETCH(QByteArray, file);
    QTemporaryDir temporary;
    const QString path = temporary.filePath(QStringLiteral("output"));
    writeFile(path, "old|", 0644);
    arguments.replaceInStrings(QStringLiteral("@FILE@"), path);
    QByteArray gotOut;
    QByteArray gotErr;
    CommandOutput receivers;
    receivers.standardOutput = [&gotOut](const QByteArray &data) {
        gotOut += data;
    };
    receivers.standardError = [&gotErr](const QByteArray &data) {
        gotErr += data;
    };
    QCOMPARE(::runCommand(arguments, QString(), true, receivers), status);
    QCOMPARE(gotOut, out);
    QCOMPARE(gotErr, err);
    QCOMPARE(readAll(path), file);
}

void tst_Core::replacesWithoutWritingThrough_data()
{
    QTest::addColumn<QString>("standing"); // what stands at the target before
    QTest::addColumn<bool>("copy"); // copyFile, else writeFile
    for (const bool copy : { true, false }) {
        const char *routine = copy ? "copy" : "write";
        for (const char *standing : { "link to a file elsewhere", "hard link", "read-only file" })
            QTest::addRow("%s: %s", routine, standing) << standing << copy;
    }
    QTest::newRow("copy: link to a folder elsewhere") << "link to a folder elsewhere" << true;
    // Not root, in a shared sticky folder, another user's file cannot be
    // replaced: its bytes are written in place, unless it has another name.
    for (const char *standing : { "another user's file", "another user's hard link" })
        QTest::addRow("write as nobody: %s", standing) << standing << false;
}

void tst_Core::replacesWithoutWritingThrough()
{
    QFETCH(QString, standing);
    QFETCH(bool, copy);
    const bool shared = standing.startsWith(QLatin1String("another user's"));
    if (shared && ::geteuid() != 0)
        QSKIP("another user's file needs root to make");
    QTemporaryDir temporary;
    QVERIFY(QDir(temporary.path()).mkpath(QStringLiteral("elsewhere/folder")));
    QVERIFY(QDir(temporary.path()).mkpath(QStringLiteral("target")));
    const QString elsewhere = temporary.filePath(QStringLiteral("elsewhere/file"));
    writeFile(elsewhere, "not ours\n", shared ? 0666 : 0600);
    const QString source = temporary.filePath(QStringLiteral("source"));
    writeFile(source, "new content\n", 0755);
    const struct timespec times[2] = { { 1000000000, 250000000 }, { 1100000000, 750000000 } };
    QVERIFY(::utimensat(AT_FDCWD, QFile::encodeName(source).constData(), times, 0) == 0);
    const QString target = temporary.filePath(QStringLiteral("target/file"));
    const QByteArray targetPath = QFile::encodeName(target);
    if (standing.startsWith(QLatin1String("link to a file")))
        QVERIFY(::symlink(QFile::encodeName(elsewhere).constData(), targetPath.constData()) == 0);
    else if (standing.endsWith(QLatin1String("hard link")))
        QVERIFY(::link(QFile::encodeName(elsewhere).constData(), targetPath.constData()) == 0);
    else if (standing.startsWith(QLatin1String("link to a folder")))
        QVERIFY(::symlink(QFile::encodeName(temporary.filePath("elsewhere/folder")).constData(),
                    targetPath.constData())
            == 0);
    else
        writeFile(target, "old", shared ? 0666 : 0444);
    if (shared) {
        QVERIFY(::chmod(QFile::encodeName(temporary.path()).constData(), 0711) == 0);
        QVERIFY(::chmod(QFile::encodeName(temporary.filePath("target")).constData(), 01777) == 0);
        QVERIFY(::chown(targetPath.constData(), 1234, 1234) == 0 && ::seteuid(65534) == 0);
        ::prctl(PR_SET_DUMPABLE, 1); // its own descriptors stay its own to link
    }
    const bool written
        = copy ? FileUtils::copyFile(source, target) : FileUtils::writeFile(target, "new content\n");
    QVERIFY(::seteuid(0) == 0);
    // In place the file keeps its owner's mode, which is reported.
    QCOMPARE(written, !shared);
    QCOMPARE(readAll(elsewhere), QByteArray("not ours\n"));
    QVERIFY(QDir(temporary.filePath("elsewhere/folder")).isEmpty());
    struct stat status;
    QVERIFY(::lstat(targetPath.constData(), &status) == 0);
    QVERIFY(S_ISREG(status.st_mode));
    QCOMPARE(int(status.st_nlink), standing == QLatin1String("another user's hard link") ? 2 : 1);
    QCOMPARE(readAll(target), QByteArray(status.st_nlink == 1 ? "new content\n" : "not ours\n"));
    if (copy) {
        // A copy keeps the source's mode and times to the nanosecond.
        QCOMPARE(int(status.st_mode & 07777), 0755 & ~0022);
        QCOMPARE(qint64(status.st_mtim.tv_nsec), qint64(750000000));
    }
    // No temporary file is left beside it.
    QCOMPARE(
        QDir(temporary.filePath("target")).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden),
        QStringList { QStringLiteral("file") });
}

void tst_Core::madeAtItsName_data()
{
    QTest::addColumn<QString>("standing"); // at the name before, or put there while it is written
    QTest::addColumn<bool>("commit");
    QTest::addColumn<QStringList>("left"); // "name: content" in the folder afterwards
    QTest::newRow("nothing, committed") << "" << true << QStringList("file: new");
    QTest::newRow("nothing, abandoned") << "" << false << QStringList();
    QTest::newRow("a file, abandoned") << "file" << false << QStringList("file: old");
    QTest::newRow("a link, committed") << "link" << true << QStringList({ "elsewhere: old", "file: new" });
    QTest::newRow("a file put there meanwhile, abandoned")
        << "meanwhile" << false << QStringList({ "file: old", "moved: new" });
}

void tst_Core::madeAtItsName()
{
    QFETCH(QString, standing);
    QFETCH(bool, commit);
    QFETCH(QStringList, left);
    QTemporaryDir temporary;
    const QDir folder(temporary.path());
    if (standing == QLatin1String("file"))
        writeFile(folder.filePath("file"), "old", 0644);
    if (standing == QLatin1String("link")) {
        writeFile(folder.filePath("elsewhere"), "old", 0644);
        QVERIFY(QFile::link(folder.filePath("elsewhere"), folder.filePath("file")));
    }
    const Descriptor held(::open(QFile::encodeName(temporary.path()).constData(), O_RDONLY | O_DIRECTORY));
    {
        ReplacementFile file(held.get(), "file", 0644, ReplacementFile::AtNameWhereFree);
        QVERIFY(file.isOpen() && ::write(file.fd(), "new", 3) == 3);
        if (standing == QLatin1String("meanwhile")) {
            QVERIFY(::rename(QFile::encodeName(folder.filePath("file")).constData(),
                        QFile::encodeName(folder.filePath("moved")).constData())
                == 0);
            writeFile(folder.filePath("file"), "old", 0644);
        }
        if (commit)
            QCOMPARE(file.commit(), ReplacementFile::Committed);
    }
    QStringList found;
    for (const QString &name : folder.entryList(QDir::Files | QDir::System | QDir::Hidden))
        found << name + ": " + readAll(folder.filePath(name)).left(3);
    QCOMPARE(found, left);
}

void tst_Core::render_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<int>("width");
    QTest::addColumn<QString>("expected");
    QTest::newRow("whitespace collapses, wraps at width")
        << QByteArray("  aaa \n\t bbb ccc ddd") << 7 << "aaa bbb\nccc ddd";
    QTest::newRow("exact width fits, one more wraps") << QByteArray("aaaa bbbbb c") << 10 << "aaaa bbbbb\nc";
    QTest::newRow("long word on its own line") << QByteArray("a bbbbbbbbbbbb c") << 5 << "a\nbbbbbbbbbbbb\nc";
    QTest::newRow("blocks, headings and inline elements")
        << QByteArray("<H1>A</H1><p>a<b>b</b>c <i>d</i></p><h6>e</h6> f<br/>g<div>h</div>") << 80
        << "A\n\nabc d\n\ne f\ng\nh";
    QTest::newRow("pre keeps lines, unwrapped")
        << QByteArray("<pre>aaaa  bbbb\n  c</pre>") << 4 << "aaaa  bbbb\n  c";
    QTest::newRow("nested blockquote indents and wraps within width")
        << QByteArray("<blockquote>aa bb cc<blockquote>b</blockquote></blockquote>") << 9
        << "    aa bb\n    cc\n        b";
    QTest::newRow("entities and comments")
        << QByteArray("a &amp; &lt;c&gt; &#233;<!-- x --> b") << 80 << QString::fromUtf8("a & <c> é b");
}

void tst_Core::render()
{
    QFETCH(QByteArray, body);
    QFETCH(int, width);
    QFETCH(QString, expected);
    PlainTextRenderer renderer(width);
    QString text;
    QString error;
    QVERIFY2(renderer.render("<html><body>" + body + "</body></html>", &text, &error), qPrintable(error));
    QCOMPARE(text, expected);
    QVERIFY(!renderer.render("<html>\n<body>\n<p>text</body></html>", &text, &error));
    QVERIFY2(error.contains(QLatin1String(" line: 3 column: ")), qPrintable(error));
}

void tst_Core::silentAnswers_data()
{
    QTest::addColumn<QString>("heading");
    QTest::addColumn<int>("buttons");
    QTest::addColumn<int>("defaultButton");
    QTest::addColumn<int>("expected");
    QTest::addColumn<QString>("line");
    const int five = InstallQuestion::Yes | InstallQuestion::YesToAll | InstallQuestion::No
        | InstallQuestion::NoToAll | InstallQuestion::Cancel;
    QTest::newRow("the default")
        << "Newer version of $(Company).txt already exists" << five << int(InstallQuestion::No)
        << int(InstallQuestion::No)
        << "question: Newer version of Tamrin.txt already exists -- answered No (default)\n";
    QTest::newRow("Ignore, never Retry")
        << "Cannot remove <b>x</b>"
        << int(InstallQuestion::Retry | InstallQuestion::Ignore | InstallQuestion::Cancel)
        << int(InstallQuestion::Retry) << int(InstallQuestion::Ignore)
        << "question: Cannot remove x -- answered Ignore (Retry is not chosen silently)\n";
    QTest::newRow("Cancel without Ignore")
        << "<p>Locked</p><p>again</p>" << int(InstallQuestion::Retry | InstallQuestion::Cancel)
        << int(InstallQuestion::Retry) << int(InstallQuestion::Cancel)
        << "question: Locked again -- answered Cancel (Retry is not chosen silently)\n";
}

void tst_Core::silentAnswers()
{
    QFETCH(QString, heading);
    QFETCH(int, buttons);
    QFETCH(int, defaultButton);
    QFETCH(int, expected);
    QFETCH(QString, line);
    macros().setDefaults();
    std::FILE *log = std::tmpfile();
    QVERIFY(log);
    InstallSilentQuestion question(log);
    QCOMPARE(question.ask(heading, QStringLiteral("<p>text</p>"), buttons, defaultButton), expected);
    std::rewind(log);
    char written[512] = {};
    QVERIFY(std::fread(written, 1, sizeof written - 1, log) > 0);
    std::fclose(log);
    QCOMPARE(QString::fromLocal8Bit(written), line);
}

void tst_Core::sha256_data()
{
    // Lengths around the padding's edges and the block size, fed in pieces
    // that start and end inside blocks.
    QTest::addColumn<int>("length");
    QTest::addColumn<int>("piece");
    for (const int length : { 0, 3, 55, 56, 63, 64, 65, 119, 120, 1000003 }) {
        for (const int piece : { 1, 7, 64, 4099 })
            QTest::addRow("%d in %d", length, piece) << length << piece;
    }
}

void tst_Core::sha256()
{
    QFETCH(int, length);
    QFETCH(int, piece);
    QByteArray data(length, Qt::Uninitialized);
    for (int i = 0; i < length; ++i)
        data[i] = char(quint32(i) * 7919u >> 3);
    Sha256 hash;
    for (int done = 0; done < length; done += piece)
        hash.addData(data.constData() + done, std::min(piece, length - done));
    QCOMPARE(hash.result().toHex(), QCryptographicHash::hash(data, QCryptographicHash::Sha256).toHex());
}

QTEST_GUILESS_MAIN(tst_Core)
#include "tst_core.moc"
