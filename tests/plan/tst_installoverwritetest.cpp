#include "core/installusercancelexception.h"
#include "plan/installoverwritetest.h"

#include "asnobody.h"
#include "scriptedquestion.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <sys/stat.h>
#include <unistd.h>
#include <utime.h>

namespace {

constexpr qint64 sourceTime = 1500000000;
constexpr quint64 sourceSize = 10;
constexpr int fiveButtons = InstallQuestion::Yes | InstallQuestion::YesToAll | InstallQuestion::No
    | InstallQuestion::NoToAll | InstallQuestion::Cancel;

bool writeFile(const QString &path, qint64 size, qint64 modified, mode_t mode)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write(QByteArray(size, 'd')) != size)
        return false;
    file.close();
    const struct utimbuf times = { time_t(modified), time_t(modified) };
    return ::utime(QFile::encodeName(path).constData(), &times) == 0
        && ::chmod(QFile::encodeName(path).constData(), mode) == 0;
}

mode_t modeOf(const QString &path)
{
    struct stat status;
    return ::stat(QFile::encodeName(path).constData(), &status) == 0 ? status.st_mode & 07777 : 0;
}

// Brings the process-wide answers to the wanted values through the public
// behaviour: a question answered with "to all".
void setMemories(
    InstallOverwriteTest::Memory overwrite, InstallOverwriteTest::Memory readOnly, const QString &folder)
{
    InstallOverwriteTest::forgetAnswers();
    ScriptedQuestion question;
    InstallOverwriteTest test(&question);
    const QString older = folder + QStringLiteral("/memory-older");
    writeFile(older, 1, sourceTime - 1, 0444);
    if (readOnly != InstallOverwriteTest::Ask) {
        question.answers = { InstallQuestion::Yes,
            readOnly == InstallOverwriteTest::YesToAll ? InstallQuestion::YesToAll
                                                       : InstallQuestion::NoToAll };
        test.shouldOverwrite(sourceTime, sourceSize, older);
    }
    if (overwrite != InstallOverwriteTest::Ask) {
        question.answers = { overwrite == InstallOverwriteTest::YesToAll ? InstallQuestion::YesToAll
                                                                         : InstallQuestion::NoToAll };
        writeFile(older, 1, sourceTime - 1, 0644);
        test.shouldOverwrite(sourceTime, sourceSize, older);
    }
    QFile::remove(older);
}

} // namespace

Q_DECLARE_METATYPE(InstallOverwriteTest::Memory)

class tst_InstallOverwriteTest : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void decision_data();
    void decision();
    void readOnly_data();
    void readOnly();
    void cannotMakeWritable_data();
    void cannotMakeWritable();
    void plantedLinkIsNotMadeWritable();

private:
    std::unique_ptr<QTemporaryDir> m_dir;
};

void tst_InstallOverwriteTest::init()
{
    InstallOverwriteTest::forgetAnswers();
    m_dir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_dir->isValid());
}

void tst_InstallOverwriteTest::decision_data()
{
    QTest::addColumn<QString>("destination");
    QTest::addColumn<InstallOverwriteTest::Memory>("memory");
    QTest::addColumn<int>("answer");
    QTest::addColumn<bool>("expected");
    QTest::addColumn<QString>("heading");
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("defaultButton");
    QTest::addColumn<InstallOverwriteTest::Memory>("memoryAfter");
    QTest::addColumn<bool>("cancelled");

    const auto Ask = InstallOverwriteTest::Ask;
    const auto YesToAll = InstallOverwriteTest::YesToAll;
    const auto NoToAll = InstallOverwriteTest::NoToAll;

    // Remembered answers, and the cases that never ask.
    const struct
    {
        const char *destination;
        bool withYesToAll;
        bool withNoToAll;
        bool withAsk;
    } unasked[] = {
        { "missing", true, true, true },
        { "same", false, false, false },
        { "sameTimeOtherSize", true, false, false },
        { "newer", true, false, false },
        { "older", true, false, false },
    };
    for (const auto &row : unasked) {
        QTest::addRow("%s, yes to all", row.destination)
            << row.destination << YesToAll << 0 << row.withYesToAll << QString() << QString() << 0 << YesToAll
            << false;
        QTest::addRow("%s, no to all", row.destination) << row.destination << NoToAll << 0 << row.withNoToAll
                                                        << QString() << QString() << 0 << NoToAll << false;
    }
    QTest::newRow("missing, ask") << "missing" << Ask << 0 << true << QString() << QString() << 0 << Ask
                                  << false;
    QTest::newRow("same, ask") << "same" << Ask << 0 << false << QString() << QString() << 0 << Ask << false;

    const struct
    {
        const char *destination;
        const char *heading;
        const char *text;
        int defaultButton;
    } asked[] = {
        { "sameTimeOtherSize", "sameTimeOtherSize already exists", "Do you want to overwrite \"%1\"?",
            InstallQuestion::No },
        { "newer", "Newer version of newer already exists",
            "Do you want to overwrite \"%1\" with older file?", InstallQuestion::No },
        { "older", "Older version of older already exists",
            "Do you want to overwrite \"%1\" with newer file?", InstallQuestion::Yes },
    };
    const struct
    {
        const char *name;
        int answer;
        bool expected;
        InstallOverwriteTest::Memory memoryAfter;
        bool cancelled;
    } answers[] = {
        { "Yes", InstallQuestion::Yes, true, Ask, false },
        { "Yes to All", InstallQuestion::YesToAll, true, YesToAll, false },
        { "No", InstallQuestion::No, false, Ask, false },
        { "No to All", InstallQuestion::NoToAll, false, NoToAll, false },
        { "Cancel", InstallQuestion::Cancel, false, Ask, true },
    };
    for (const auto &question : asked) {
        for (const auto &answer : answers) {
            QTest::addRow("%s, ask, %s", question.destination, answer.name)
                << question.destination << Ask << answer.answer << answer.expected << question.heading
                << question.text << question.defaultButton << answer.memoryAfter << answer.cancelled;
        }
    }
}

void tst_InstallOverwriteTest::decision()
{
    QFETCH(QString, destination);
    QFETCH(InstallOverwriteTest::Memory, memory);
    QFETCH(int, answer);
    QFETCH(bool, expected);
    QFETCH(QString, heading);
    QFETCH(QString, text);
    QFETCH(int, defaultButton);
    QFETCH(InstallOverwriteTest::Memory, memoryAfter);
    QFETCH(bool, cancelled);

    for (bool readOnly : { false, true }) {
        const QString path = m_dir->filePath(destination);
        const mode_t mode = readOnly ? 0444 : 0644;
        if (destination == QLatin1String("same"))
            QVERIFY(writeFile(path, sourceSize, sourceTime, mode));
        else if (destination == QLatin1String("sameTimeOtherSize"))
            QVERIFY(writeFile(path, sourceSize + 1, sourceTime, mode));
        else if (destination == QLatin1String("newer"))
            QVERIFY(writeFile(path, sourceSize, sourceTime + 100, mode));
        else if (destination == QLatin1String("older"))
            QVERIFY(writeFile(path, sourceSize, sourceTime - 100, mode));

        // A read-only destination that is to be replaced is then asked about
        // once more; answering Yes makes it writable.
        setMemories(memory, InstallOverwriteTest::Ask, m_dir->path());
        ScriptedQuestion question;
        if (answer)
            question.answers.append(answer);
        if (readOnly)
            question.answers.append(InstallQuestion::Yes);
        InstallOverwriteTest test(&question);
        bool result = false;
        bool threw = false;
        try {
            result = test.shouldOverwrite(sourceTime, sourceSize, path);
        } catch (const InstallUserCancelException &) {
            threw = true;
        }
        QCOMPARE(threw, cancelled);
        QCOMPARE(result, expected);
        QCOMPARE(InstallOverwriteTest::overwriteMemory(), memoryAfter);
        QCOMPARE(question.unscripted, 0);

        QStringList headings;
        if (!heading.isEmpty())
            headings.append(heading);
        if (readOnly && expected && destination != QLatin1String("missing"))
            headings.append(path + QStringLiteral(" is a read only file"));
        QCOMPARE(question.headings(), headings);
        if (!heading.isEmpty()) {
            QCOMPARE(question.asked.first().text, text.arg(path));
            QCOMPARE(question.asked.first().buttons, fiveButtons);
            QCOMPARE(question.asked.first().defaultButton, defaultButton);
        }
        if (readOnly && expected && destination != QLatin1String("missing"))
            QCOMPARE(modeOf(path), mode_t(0644));
        else if (destination != QLatin1String("missing"))
            QCOMPARE(modeOf(path), mode);
        QFile::remove(path);
    }
}

void tst_InstallOverwriteTest::readOnly_data()
{
    QTest::addColumn<InstallOverwriteTest::Memory>("memory");
    QTest::addColumn<int>("answer");
    QTest::addColumn<bool>("expected");
    QTest::addColumn<InstallOverwriteTest::Memory>("memoryAfter");
    QTest::addColumn<bool>("cancelled");

    const auto Ask = InstallOverwriteTest::Ask;
    const auto YesToAll = InstallOverwriteTest::YesToAll;
    const auto NoToAll = InstallOverwriteTest::NoToAll;
    QTest::newRow("ask, Yes") << Ask << int(InstallQuestion::Yes) << true << Ask << false;
    QTest::newRow("ask, Yes to All") << Ask << int(InstallQuestion::YesToAll) << true << YesToAll << false;
    QTest::newRow("ask, No") << Ask << int(InstallQuestion::No) << false << Ask << false;
    QTest::newRow("ask, No to All") << Ask << int(InstallQuestion::NoToAll) << false << NoToAll << false;
    QTest::newRow("ask, Cancel") << Ask << int(InstallQuestion::Cancel) << false << Ask << true;
    QTest::newRow("yes to all") << YesToAll << 0 << true << YesToAll << false;
    QTest::newRow("no to all") << NoToAll << 0 << false << NoToAll << false;
}

void tst_InstallOverwriteTest::readOnly()
{
    QFETCH(InstallOverwriteTest::Memory, memory);
    QFETCH(int, answer);
    QFETCH(bool, expected);
    QFETCH(InstallOverwriteTest::Memory, memoryAfter);
    QFETCH(bool, cancelled);

    // An older read-only file, with "Yes to All" given for existing files.
    setMemories(InstallOverwriteTest::YesToAll, memory, m_dir->path());
    const QString path = m_dir->filePath(QStringLiteral("bin.so"));
    QVERIFY(writeFile(path, sourceSize, sourceTime - 100, 0454));
    ScriptedQuestion question;
    if (answer)
        question.answers.append(answer);
    InstallOverwriteTest test(&question);
    bool result = false;
    bool threw = false;
    try {
        result = test.shouldOverwrite(sourceTime, sourceSize, path);
    } catch (const InstallUserCancelException &) {
        threw = true;
    }
    QCOMPARE(threw, cancelled);
    QCOMPARE(result, expected);
    QCOMPARE(InstallOverwriteTest::readOnlyMemory(), memoryAfter);
    QCOMPARE(InstallOverwriteTest::overwriteMemory(), InstallOverwriteTest::YesToAll);
    QCOMPARE(question.asked.size(), answer ? 1 : 0);
    if (answer) {
        QCOMPARE(question.asked.first().heading, path + QStringLiteral(" is a read only file"));
        QCOMPARE(question.asked.first().text,
            QStringLiteral("Do you want to overwrite read only file \"bin.so\"?"));
        QCOMPARE(question.asked.first().buttons, fiveButtons);
        QCOMPARE(question.asked.first().defaultButton, int(InstallQuestion::No));
    }
    // Only the owner's write bit is added.
    QCOMPARE(modeOf(path), expected ? mode_t(0654) : mode_t(0454));
}

void tst_InstallOverwriteTest::cannotMakeWritable_data()
{
    QTest::addColumn<QList<int>>("answers");
    QTest::addColumn<bool>("expected");
    QTest::addColumn<bool>("cancelled");

    QTest::newRow("Yes skips") << QList<int> { InstallQuestion::Yes } << false << false;
    QTest::newRow("No tries again, as often as asked")
        << QList<int> { InstallQuestion::No, InstallQuestion::No, InstallQuestion::Yes } << false << false;
    QTest::newRow("Cancel") << QList<int> { InstallQuestion::No, InstallQuestion::Cancel } << false << true;
}

void tst_InstallOverwriteTest::cannotMakeWritable()
{
    QFETCH(QList<int>, answers);
    QFETCH(bool, expected);
    QFETCH(bool, cancelled);

    if (::geteuid() != 0)
        QSKIP("needs root to make a file that this process cannot change");
    // A file of the administrator's, seen by an unprivileged user.
    QVERIFY(::chmod(QFile::encodeName(m_dir->path()).constData(), 0755) == 0);
    const QString path = m_dir->filePath(QStringLiteral("locked"));
    QVERIFY(writeFile(path, sourceSize, sourceTime - 100, 0444));
    setMemories(InstallOverwriteTest::YesToAll, InstallOverwriteTest::YesToAll, m_dir->path());

    ScriptedQuestion question;
    question.answers = answers;
    InstallOverwriteTest test(&question);
    bool result = false;
    bool threw = false;
    {
        AsNobody nobody;
        QVERIFY(nobody.unprivileged());
        try {
            result = test.shouldOverwrite(sourceTime, sourceSize, path);
        } catch (const InstallUserCancelException &) {
            threw = true;
        }
    }
    QCOMPARE(threw, cancelled);
    QCOMPARE(result, expected);
    QCOMPARE(question.asked.size(), answers.size());
    QCOMPARE(question.unscripted, 0);
    for (const ScriptedQuestion::Asked &asked : std::as_const(question.asked)) {
        QCOMPARE(asked.heading, QStringLiteral("Cannot make ") + path + QStringLiteral(" writable"));
        QCOMPARE(asked.text, QStringLiteral("Do you want to skip over installation of locked?"));
        QCOMPARE(asked.buttons, int(InstallQuestion::Yes | InstallQuestion::No | InstallQuestion::Cancel));
        QCOMPARE(asked.defaultButton, int(InstallQuestion::Yes));
    }
    QCOMPARE(modeOf(path), mode_t(0444));
}

void tst_InstallOverwriteTest::plantedLinkIsNotMadeWritable()
{
    // A link in place of a product file, to a protected file elsewhere: the
    // write bit must not reach through it.
    const QString outside = m_dir->filePath(QStringLiteral("outside"));
    QVERIFY(writeFile(outside, sourceSize, sourceTime - 100, 0444));
    const QString path = m_dir->filePath(QStringLiteral("planted"));
    QVERIFY(::symlink(QFile::encodeName(outside).constData(), QFile::encodeName(path).constData()) == 0);
    setMemories(InstallOverwriteTest::YesToAll, InstallOverwriteTest::YesToAll, m_dir->path());

    ScriptedQuestion question;
    question.answers = { InstallQuestion::Yes };
    InstallOverwriteTest test(&question);
    QVERIFY(!test.shouldOverwrite(sourceTime, sourceSize, path));
    QCOMPARE(question.headings(),
        QStringList { QStringLiteral("Cannot make ") + path + QStringLiteral(" writable") });
    QCOMPARE(modeOf(outside), mode_t(0444));
}

QTEST_GUILESS_MAIN(tst_InstallOverwriteTest)
#include "tst_installoverwritetest.moc"
