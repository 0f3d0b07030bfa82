#include "core/installsilentquestion.h"

#include "core/installlog.h"
#include "core/plaintext.h"

InstallSilentQuestion::InstallSilentQuestion(std::FILE *stream)
    : m_stream(stream)
{ }

int InstallSilentQuestion::ask(const QString &heading, const QString &, int buttons, int defaultButton)
{
    int answer = defaultButton;
    QString reason = QStringLiteral("default");
    if (answer == Retry) {
        // Nobody can free the file between two tries; Ignore moves on.
        answer = (buttons & Ignore) ? int(Ignore) : int(Cancel);
        reason = QStringLiteral("Retry is not chosen silently");
    }
    writeLine(QStringLiteral("question: %1 -- answered %2 (%3)")
                  .arg(plainLine(heading), buttonName(answer), reason));
    return answer;
}

QString InstallSilentQuestion::locateFile(const QString &path)
{
    writeLine(QStringLiteral("question: Cannot find the file named %1 -- not located (no one to ask)")
                  .arg(plainLine(path)));
    return QString();
}

QString InstallSilentQuestion::buttonName(int button)
{
    switch (button) {
    case Yes:
        return QStringLiteral("Yes");
    case YesToAll:
        return QStringLiteral("Yes to All");
    case Ok:
        return QStringLiteral("OK");
    case Retry:
        return QStringLiteral("Retry");
    case No:
        return QStringLiteral("No");
    case NoToAll:
        return QStringLiteral("No to All");
    case Ignore:
        return QStringLiteral("Ignore");
    case IgnoreAll:
        return QStringLiteral("Ignore All");
    case Cancel:
        return QStringLiteral("Cancel");
    }
    return QString::number(button);
}

void InstallSilentQuestion::writeLine(const QString &line)
{
    InstallLog::write(line);
    // Standard output first, so the line lands after what was already printed.
    std::fflush(stdout);
    std::fprintf(m_stream, "%s\n", line.toLocal8Bit().constData());
    std::fflush(m_stream);
}
