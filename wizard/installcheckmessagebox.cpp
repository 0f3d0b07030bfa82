#include "wizard/installcheckmessagebox.h"

#include "core/macrotable.h"
#include "wizard/installfindfiledialog.h"
#include "wizard/wizardresources.h"

#include <QGuiApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QScreen>
#include <QVBoxLayout>

namespace {

constexpr int ButtonOrder[] = { InstallQuestion::Yes, InstallQuestion::YesToAll, InstallQuestion::Ok,
    InstallQuestion::Retry, InstallQuestion::No, InstallQuestion::NoToAll, InstallQuestion::Ignore,
    InstallQuestion::IgnoreAll, InstallQuestion::Cancel };

} // namespace

InstallCheckMessageBox::InstallCheckMessageBox(QWidget *parent)
    : QDialog(parent)
    , m_text(new QLabel)
    , m_buttonRow(new QWidget)
{
    setObjectName(QStringLiteral("install-check-message-box"));
    setModal(true);

    auto *icon = new QLabel;
    icon->setObjectName(QStringLiteral("icon"));
    icon->setPixmap(WizardResources::questionIcon());
    icon->setAlignment(Qt::AlignTop);
    m_text->setTextFormat(Qt::RichText);
    m_text->setWordWrap(true);
    m_text->setMinimumWidth(360);
    m_text->setMaximumWidth(480);

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(12, 12, 12, 12);
    layout->setSpacing(12);
    layout->setSizeConstraint(QLayout::SetFixedSize);
    auto *body = new QHBoxLayout;
    body->setSpacing(12);
    body->addWidget(icon, 0, Qt::AlignTop);
    body->addWidget(m_text, 1);
    layout->addLayout(body);
    auto *row = new QHBoxLayout(m_buttonRow);
    row->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(m_buttonRow);
}

InstallCheckMessageBox::~InstallCheckMessageBox() = default;

int InstallCheckMessageBox::ask(const QString &heading, const QString &text, int buttons, int defaultButton)
{
    setWindowTitle(expandMacros(QStringLiteral("$(Product) $(Version) Setup")));
    const QString question = expandMacros(text);
    m_text->setText(heading.isEmpty()
            ? question
            : QStringLiteral("<b>") + expandMacros(heading) + QStringLiteral("</b><p>") + question);

    qDeleteAll(m_buttons);
    m_buttons.clear();
    auto *row = static_cast<QHBoxLayout *>(m_buttonRow->layout());
    while (QLayoutItem *item = row->takeAt(0))
        delete item;
    row->addStretch(1);
    m_closeAnswer = (buttons & Cancel) ? int(Cancel) : (buttons & No) ? int(No) : defaultButton;
    QPushButton *focus = nullptr;
    for (const int value : ButtonOrder) {
        if (!(buttons & value))
            continue;
        auto *button = new QPushButton(buttonLabel(value));
        button->setObjectName(QString::number(value));
        connect(button, &QPushButton::clicked, this, [this, value] { done(value); });
        row->addWidget(button);
        m_buttons.append(button);
        if (value == defaultButton)
            focus = button;
    }
    if (focus) {
        focus->setDefault(true);
        focus->setFocus();
    }

    // The fixed-size layout takes its size only when activated; centre the final size.
    layout()->activate();
    adjustSize();
    if (const QScreen *screen = QGuiApplication::primaryScreen())
        move(screen->geometry().center() - rect().center());
    return exec();
}

QString InstallCheckMessageBox::locateFile(const QString &path)
{
    InstallFindFileDialog locator(InstallFindFileDialog::File, path, parentWidget());
    return locator.locate();
}

QString InstallCheckMessageBox::buttonLabel(int button)
{
    switch (button) {
    case Yes:
        return QStringLiteral("&Yes");
    case YesToAll:
        return QStringLiteral("Yes to &All");
    case Ok:
        return QStringLiteral("&OK");
    case Retry:
        return QStringLiteral("&Retry");
    case No:
        return QStringLiteral("&No");
    case NoToAll:
        return QStringLiteral("No to A&ll");
    case Ignore:
        return QStringLiteral("&Ignore");
    case IgnoreAll:
        return QStringLiteral("I&gnore All");
    case Cancel:
        return QStringLiteral("&Cancel");
    }
    return QString();
}

void InstallCheckMessageBox::reject()
{
    done(m_closeAnswer);
}
