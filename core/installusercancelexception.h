#pragma once

#include <QString>

// Thrown when the user chooses to terminate (Cancel in a question, Yes to
// "terminate the installation?"); ends the whole run and is never swallowed by
// the item walks. When a failure prompted the choice it travels along: a
// silent run, where nobody chose, reports that failure instead.
class InstallUserCancelException
{
public:
    InstallUserCancelException() = default;
    explicit InstallUserCancelException(const QString &failure)
        : m_failure(failure)
    { }

    const QString &failure() const { return m_failure; }

private:
    QString m_failure;
};
