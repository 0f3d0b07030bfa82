#pragma once

#include <QByteArray>
#include <QString>

#include <exception>

// The program's general failure: archive, command line and other errors outside
// item actions. Carries the finished message that the console or a box shows.
class HException : public std::exception
{
public:
    explicit HException(const QString &message);

    const QString &message() const { return m_message; }
    const char *what() const noexcept override { return m_utf8.constData(); }

private:
    QString m_message;
    QByteArray m_utf8;
};
