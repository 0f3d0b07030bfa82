#pragma once

#include <QString>

// How an item action or a medium copy fails: the message becomes part of the
// "Do you want to terminate the installation?" question.
class InstallException
{
public:
    explicit InstallException(const QString &message)
        : m_message(message)
    { }

    const QString &message() const { return m_message; }

private:
    QString m_message;
};
