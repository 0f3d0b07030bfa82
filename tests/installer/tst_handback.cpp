#include "core/console.h"
#include "installer/processentry.h"

#include <QDir>
#include <QTemporaryDir>
#include <QtTest>

#include <sys/stat.h>
#include <unistd.h>

namespace {

const uid_t User = 12345;
const gid_t Group = 23456;

// "user:group" of a path itself (links not followed); "-" when it does not exist.
QString ownerOf(const QString &path)
{
    struct stat status;
    if (::lstat(QFile::encodeName(path).constData(), &status) != 0)
        return QStringLiteral("-");
    return QStringLiteral("%1:%2").arg(status.st_uid).arg(status.st_gid);
}

} // namespace

class tst_HandBack : public QObject
{
    Q_OBJECT

private slots:
    void handBack_data();
    void handBack();
};

void tst_HandBack::handBack_data()
{
    // The home folder is the user's unless a step gives it back to root.
    QTest::addColumn<QStringList>("layout"); // "d path", "l path target", "h path target" or "c path uid:gid"
    QTest::addColumn<QStringList>("owners"); // "path owner" after the hand-back

    const QString user = QStringLiteral("%1:%2").arg(User).arg(Group);
    const QString root = QStringLiteral("0:0");
    QTest::newRow("all three") << QStringList { "d .config", "d .config/Co", "d .config/Co/Prod" }
                               << QStringList { ".config " + user, ".config/Co " + user,
                                      ".config/Co/Prod " + user };
    QTest::newRow("config of another user kept")
        << QStringList { "d .config", "c .config 7:7", "d .config/Co", "d .config/Co/Prod" }
        << QStringList { ".config 7:7", ".config/Co " + user, ".config/Co/Prod " + user };
    QTest::newRow("config of root user, other group kept") << QStringList { "d .config", "c .config 0:7",
        "d .config/Co" } << QStringList { ".config 0:7", ".config/Co " + user };
    QTest::newRow("missing folders ignored")
        << QStringList { "d .config" } << QStringList { ".config " + user };
    QTest::newRow("nothing there") << QStringList {} << QStringList { ".config -" };
    // HOME pointing at root's own folders.
    QTest::newRow("home of another user")
        << QStringList { "c . 0:0", "d .config", "d .config/Co", "d .config/Co/Prod" }
        << QStringList { ".config " + root, ".config/Co " + root, ".config/Co/Prod " + root };
    // Links are neither followed nor handed over themselves.
    QTest::newRow("company link") << QStringList {
        "d .config", "d outside", "d outside/Prod", "l .config/Co ../outside"
    } << QStringList { ".config/Co " + root, "outside " + root, "outside/Prod " + root };
    QTest::newRow("product link") << QStringList { "d .config", "d .config/Co", "d outside",
        "l .config/Co/Prod ../../outside" }
                                  << QStringList { ".config/Co/Prod " + root, "outside " + root };
    QTest::newRow("config link") << QStringList { "d outside", "d outside/Co", "d outside/Co/Prod",
        "l .config outside" }
                                 << QStringList { ".config " + root, "outside " + root, "outside/Co " + root,
                                        "outside/Co/Prod " + root };
    // A file of root's linked in where a folder belongs.
    QTest::newRow("product hard link") << QStringList { "d .config", "d .config/Co", "f secret",
        "h .config/Co/Prod secret" } << QStringList { ".config/Co " + user, "secret " + root };
}

void tst_HandBack::handBack()
{
    QFETCH(QStringList, layout);
    QFETCH(QStringList, owners);
    if (!Console::isAdministrator())
        QSKIP("changing owners needs root");

    QTemporaryDir home;
    QVERIFY(home.isValid());
    QVERIFY(::chown(QFile::encodeName(home.path()).constData(), User, Group) == 0);
    for (const QString &step : layout) {
        const QStringList parts = step.split(QLatin1Char(' '));
        const QByteArray path = QFile::encodeName(home.filePath(parts.at(1)));
        if (parts.at(0) == QLatin1String("d")) {
            QVERIFY(QDir().mkpath(home.filePath(parts.at(1))));
        } else if (parts.at(0) == QLatin1String("f")) {
            QFile file(home.filePath(parts.at(1)));
            QVERIFY(file.open(QIODevice::WriteOnly));
        } else if (parts.at(0) == QLatin1String("l")) {
            QVERIFY(::symlink(QFile::encodeName(parts.at(2)).constData(), path.constData()) == 0);
        } else if (parts.at(0) == QLatin1String("h")) {
            QVERIFY(::link(QFile::encodeName(home.filePath(parts.at(2))).constData(), path.constData()) == 0);
        } else {
            const QStringList ids = parts.at(2).split(QLatin1Char(':'));
            QVERIFY(::chown(path.constData(), ids.at(0).toUInt(), ids.at(1).toUInt()) == 0);
        }
    }

    ProcessEntry::handBackConfiguration(
        home.path(), QStringLiteral("Co"), QStringLiteral("Prod"), User, Group);

    for (const QString &expected : owners) {
        const int blank = expected.indexOf(QLatin1Char(' '));
        QCOMPARE(ownerOf(home.filePath(expected.left(blank))), expected.mid(blank + 1));
    }
}

QTEST_GUILESS_MAIN(tst_HandBack)
#include "tst_handback.moc"
