#include "core/hexception.h"

HException::HException(const QString &message)
    : m_message(message)
    , m_utf8(message.toUtf8())
{ }
