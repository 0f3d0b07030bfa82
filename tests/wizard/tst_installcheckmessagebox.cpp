#include "core/macrotable.h"
#include "wizard/installcheckmessagebox.h"
#include "wizard/installfindfiledialog.h"

#include "modalhelper.h"

#include <QGuiApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QScreen>
#include <QTest>

namespace {

struct Seen
{
    QStringList labels;
    QString focused;
    QString defaultButton;
    QString title;
    QString objectName;
    QString text;
    QPoint centre;
    bool iconLeftOfText = false;
};

// Records what the box shows, then clicks the button with the given label.
void answer(Seen *seen, const QString &click)
{
    whenModal([seen, click](QWidget *widget) {
        auto *box = qobject_cast<InstallCheckMessageBox *>(widget);
        QVERIFY(box);
        seen->title = box->windowTitle();
        seen->objectName = box->objectName();
        seen->text = box->textLabel()->text();
        seen->centre = box->geometry().center();
        const QLabel *icon = box->findChild<QLabel *>(QStringLiteral("icon"));
        seen->iconLeftOfText = icon && !icon->pixmap().isNull()
            && icon->geometry().right() < box->textLabel()->geometry().left();
        if (QWidget *focus = QApplication::focusWidget())
            seen->focused
                = qobject_cast<QPushButton *>(focus) ? static_cast<QPushButton *>(focus)->text() : QString();
        QPushButton *target = nullptr;
        int previousRight = -1;
        for (QPushButton *button : box->buttons()) {
            seen->labels.append(button->text());
            if (button->isDefault())
                seen->defaultButton = button->text();
            // Laid out left to right in the order listed.
            QVERIFY(button->geometry().left() > previousRight);
            previousRight = button->geometry().right();
            if (button->text() == click)
                target = button;
        }
        if (target)
            QTest::mouseClick(target, Qt::LeftButton);
        else
            QTest::keyClick(box, Qt::Key_Escape);
    });
}

} // namespace

class tst_InstallCheckMessageBox : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void buttons_data();
    void buttons();
    void enterPressesDefault_data();
    void enterPressesDefault();
    void closingIsCautious_data();
    void closingIsCautious();
    void reusedForAnotherQuestion();
    void locateFile();
};

void tst_InstallCheckMessageBox::initTestCase()
{
    macros().setDefaults();
    macros().set(QStringLiteral("Product"), QStringLiteral("Calvra"));
    macros().set(QStringLiteral("Version"), QStringLiteral("5.50"));
    macros().set(QStringLiteral("AltArch"), QStringLiteral(" (64-bit)"));
}

void tst_InstallCheckMessageBox::buttons_data()
{
    QTest::addColumn<int>("buttons");
    QTest::addColumn<int>("defaultButton");
    QTest::addColumn<QString>("click");
    QTest::addColumn<QStringList>("labels");
    QTest::addColumn<int>("result");
    QTest::newRow("yes/no, default yes, yes") << 17 << 1 << "&Yes" << QStringList({ "&Yes", "&No" }) << 1;
    QTest::newRow("yes/no, default no, yes") << 17 << 16 << "&Yes" << QStringList({ "&Yes", "&No" }) << 1;
    QTest::newRow("yes/no, no") << 17 << 1 << "&No" << QStringList({ "&Yes", "&No" }) << 16;
    QTest::newRow("overwrite") << (1 | 2 | 16 | 32 | 256) << 16 << "No to A&ll"
                               << QStringList({ "&Yes", "Yes to &All", "&No", "No to A&ll", "&Cancel" })
                               << 32;
    QTest::newRow("removal failure") << (8 | 64 | 128 | 256) << 8 << "I&gnore All"
                                     << QStringList({ "&Retry", "&Ignore", "I&gnore All", "&Cancel" }) << 128;
    QTest::newRow("every button") << 511 << 4 << "&OK"
                                  << QStringList({ "&Yes", "Yes to &All", "&OK", "&Retry", "&No",
                                         "No to A&ll", "&Ignore", "I&gnore All", "&Cancel" })
                                  << 4;
}

void tst_InstallCheckMessageBox::buttons()
{
    QFETCH(int, buttons);
    QFETCH(int, defaultButton);
    QFETCH(QString, click);
    QFETCH(QStringList, labels);
    QFETCH(int, result);
    InstallCheckMessageBox box;
    Seen seen;
    answer(&seen, click);
    QCOMPARE(box.ask(QStringLiteral("Core Installation Failed"), QStringLiteral("Terminate $(Product)?"),
                 buttons, defaultButton),
        result);
    QCOMPARE(seen.labels, labels);
    QCOMPARE(seen.defaultButton, InstallCheckMessageBox::buttonLabel(defaultButton));
    QCOMPARE(seen.focused, InstallCheckMessageBox::buttonLabel(defaultButton));
    QCOMPARE(seen.title, QStringLiteral("Calvra 5.50 Setup"));
    QCOMPARE(seen.objectName, QStringLiteral("install-check-message-box"));
    QCOMPARE(seen.text, QStringLiteral("<b>Core Installation Failed</b><p>Terminate Calvra?"));
    QVERIFY(seen.iconLeftOfText);
    // Within rounding: QRect::center() of an even size lies half a pixel off.
    const QPoint screenCentre = QGuiApplication::primaryScreen()->geometry().center();
    QVERIFY2((seen.centre - screenCentre).manhattanLength() <= 4,
        qPrintable(QStringLiteral("%1,%2 vs %3,%4")
                       .arg(seen.centre.x())
                       .arg(seen.centre.y())
                       .arg(screenCentre.x())
                       .arg(screenCentre.y())));
}

void tst_InstallCheckMessageBox::enterPressesDefault_data()
{
    QTest::addColumn<int>("defaultButton");
    QTest::newRow("yes") << 1;
    QTest::newRow("no") << 16;
}

void tst_InstallCheckMessageBox::enterPressesDefault()
{
    QFETCH(int, defaultButton);
    InstallCheckMessageBox box;
    whenModal([](QWidget *widget) { QTest::keyClick(widget, Qt::Key_Return); });
    QCOMPARE(box.ask(QString(), QStringLiteral("Sure?"), 17, defaultButton), defaultButton);
}

void tst_InstallCheckMessageBox::closingIsCautious_data()
{
    QTest::addColumn<int>("buttons");
    QTest::addColumn<int>("defaultButton");
    QTest::addColumn<int>("result");
    QTest::newRow("yes/no, default yes") << 17 << 1 << 16;
    QTest::newRow("with cancel") << (1 | 16 | 256) << 1 << 256;
    QTest::newRow("ok only") << 4 << 4 << 4;
}

void tst_InstallCheckMessageBox::closingIsCautious()
{
    QFETCH(int, buttons);
    QFETCH(int, defaultButton);
    QFETCH(int, result);
    InstallCheckMessageBox box;
    Seen seen;
    answer(&seen, QString());
    QCOMPARE(box.ask(QString(), QStringLiteral("Sure?"), buttons, defaultButton), result);
    QCOMPARE(seen.text, QStringLiteral("Sure?"));
}

void tst_InstallCheckMessageBox::reusedForAnotherQuestion()
{
    InstallCheckMessageBox box;
    Seen first;
    answer(&first, QStringLiteral("&Retry"));
    QCOMPARE(box.ask(QString(), QStringLiteral("One"), 8 | 64, 8), 8);
    Seen second;
    answer(&second, QStringLiteral("&No"));
    QCOMPARE(box.ask(QString(), QStringLiteral("Two"), 17, 1), 16);
    QCOMPARE(second.labels, QStringList({ "&Yes", "&No" }));
    QCOMPARE(second.focused, QStringLiteral("&Yes"));
}

void tst_InstallCheckMessageBox::locateFile()
{
    InstallCheckMessageBox box;
    QString title;
    whenModal([&](QWidget *widget) {
        auto *locator = qobject_cast<InstallFindFileDialog *>(widget);
        QVERIFY(locator);
        title = locator->windowTitle();
        QCOMPARE(locator->form(), InstallFindFileDialog::File);
        locator->pathEdit()->setText(QStringLiteral("/mnt/usb/core.pkg"));
        locator->accept();
    });
    QCOMPARE(box.locateFile(QStringLiteral("/media/cd/core.pkg")), QStringLiteral("/mnt/usb/core.pkg"));
    QCOMPARE(title, QStringLiteral("Locate File"));
}

QTEST_MAIN(tst_InstallCheckMessageBox)
#include "tst_installcheckmessagebox.moc"
