#include "wizard/classicinstallwizard.h"

#include "core/macrotable.h"
#include "wizard/installwizarddialog.h"

#include <QCloseEvent>
#include <QFrame>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QScreen>
#include <QShortcut>
#include <QStackedWidget>
#include <QVBoxLayout>

ClassicInstallWizard::ClassicInstallWizard(const QPixmap &headerImage, QWidget *parent)
    : InstallWizard(parent)
    , m_headerLabel(new QLabel)
    , m_backButton(new QPushButton)
    , m_nextButton(new QPushButton)
    , m_cancelButton(new QPushButton)
{
    setWindowTitle(expandMacros(QStringLiteral("$(Product) $(Version)$(AltArch) Setup")));
    setFixedSize(Width, Height);
    setFocusPolicy(Qt::NoFocus);

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);

    auto *header = new QFrame;
    header->setObjectName(QStringLiteral("header"));
    header->setStyleSheet(QStringLiteral("* { background-color: white; }"));
    header->setFrameStyle(QFrame::Panel | QFrame::Sunken);
    header->setLineWidth(1);
    auto *headerLayout = new QHBoxLayout(header);
    headerLayout->setContentsMargins(2, 2, 2, 2);
    // The frame keeps its 2 pixels; the label's own margin and indent line the
    // title up with the page bodies below.
    m_headerLabel->setObjectName(QStringLiteral("headerText"));
    m_headerLabel->setMinimumWidth(400);
    m_headerLabel->setMargin(4);
    m_headerLabel->setIndent(9);
    m_headerLabel->setTextFormat(Qt::RichText);
    m_headerLabel->setAlignment(Qt::AlignLeft | Qt::AlignVCenter);
    headerLayout->addWidget(m_headerLabel, 1);
    if (!headerImage.isNull()) {
        auto *image = new QLabel;
        image->setObjectName(QStringLiteral("headerImage"));
        image->setPixmap(headerImage);
        headerLayout->addWidget(image, 0, Qt::AlignRight | Qt::AlignVCenter);
    }
    // One height for every page: a title and a one-line description, or the
    // image, whichever is taller; the pages below do not jump.
    m_headerLabel->setText(QStringLiteral("<b>Title</b><p>Description</p>"));
    header->setFixedHeight(qMax(m_headerLabel->sizeHint().height(), headerImage.height()) + 2 * 2 + 2);
    m_headerLabel->clear();
    layout->addWidget(header);

    auto *stack = new QStackedWidget;
    layout->addWidget(stack, 1);
    setStack(stack);

    auto *separator = new QFrame;
    separator->setFrameStyle(QFrame::HLine | QFrame::Sunken);
    layout->addWidget(separator);

    auto *buttons = new QHBoxLayout;
    buttons->setContentsMargins(3, 3, 3, 3);
    buttons->addStretch(1);
    m_backButton->setObjectName(QStringLiteral("Back"));
    m_nextButton->setObjectName(QStringLiteral("Next"));
    m_cancelButton->setObjectName(QStringLiteral("Cancel"));
    for (QPushButton *button : { m_backButton, m_nextButton, m_cancelButton }) {
        button->setAutoDefault(false);
        buttons->addWidget(button);
    }
    m_nextButton->setDefault(true);
    layout->addLayout(buttons);

    connect(m_backButton, &QPushButton::clicked, this, &InstallWizard::onBackClicked);
    connect(m_nextButton, &QPushButton::clicked, this, &InstallWizard::onNextClicked);
    connect(m_cancelButton, &QPushButton::clicked, this, &InstallWizard::onCancelClicked);
    // The row has no Help button; F1 asks the visible page for help instead.
    auto *help = new QShortcut(QKeySequence::HelpContents, this);
    connect(help, &QShortcut::activated, this, &InstallWizard::onHelpClicked);

    centreOnPrimaryScreen();
}

ClassicInstallWizard::~ClassicInstallWizard() = default;

void ClassicInstallWizard::reject()
{
    onCancelClicked();
}

void ClassicInstallWizard::updateDialog()
{
    InstallWizardDialog *page = currentPage();
    if (!page)
        return;
    // An empty paragraph takes no line: the title would move down to the middle.
    const QString description
        = page->description().isEmpty() ? QStringLiteral("&nbsp;") : page->description();
    m_headerLabel->setText(expandMacros(QStringLiteral("<b>") + page->title() + QStringLiteral("</b><p>")
        + description + QStringLiteral("</p>")));
    const quint32 flags = page->flags();
    m_backButton->setText(page->backLabel());
    m_backButton->setEnabled(!(flags & InstallWizardDialog::BackDisabled));
    m_nextButton->setText(page->nextLabel());
    m_nextButton->setEnabled(!(flags & InstallWizardDialog::NextDisabled));
    m_cancelButton->setText(page->cancelLabel());
    m_cancelButton->setEnabled(!(flags & InstallWizardDialog::CancelDisabled));
}

void ClassicInstallWizard::closeEvent(QCloseEvent *event)
{
    event->ignore();
    onCancelClicked();
}

void ClassicInstallWizard::centreOnPrimaryScreen()
{
    const QScreen *screen = QGuiApplication::primaryScreen();
    if (!screen)
        return;
    const QRect area = screen->geometry();
    move((area.left() + area.right()) / 2 - (width() + 1) / 2,
        (area.top() + area.bottom()) / 2 - (height() + 1) / 2);
}
