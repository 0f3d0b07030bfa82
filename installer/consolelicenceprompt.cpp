#include "installer/consolelicenceprompt.h"

#include "core/console.h"
#include "core/hexception.h"
#include "core/installlog.h"
#include "core/plaintextrenderer.h"
#include "installer/licencedocument.h"

#include <algorithm>
#include <strings.h>
#include <unistd.h>

ConsoleLicencePrompt::ConsoleLicencePrompt(bool interactive, int rows, FILE *in, FILE *out)
    : m_interactive(interactive)
    , m_rows(rows)
    , m_in(in)
    , m_out(out)
{ }

void ConsoleLicencePrompt::confirmAgreement(int columns, int rows)
{
    PlainTextRenderer renderer(columns);
    QString text;
    QString error;
    if (!renderer.render(LicenceDocument::bytes(), &text, &error))
        throw HException(error);
    const bool interactive = ::isatty(STDIN_FILENO) && ::isatty(STDOUT_FILENO);
    ConsoleLicencePrompt prompt(interactive, rows);
    // The agreement itself is the product's, not news: the log gets the answer.
    if (!prompt.ask(text.split(QLatin1Char('\n'))))
        throw HException(QStringLiteral("License agreement not accepted"));
    InstallLog::write(QStringLiteral("License agreement accepted"));
    std::fputs("License agreement accepted\n", stdout);
    std::fflush(stdout);
}

bool ConsoleLicencePrompt::ask(const QStringList &lines)
{
    show(lines);
    return readAnswer();
}

void ConsoleLicencePrompt::show(const QStringList &lines)
{
    const int screenful = std::max(1, m_rows - 1);
    for (int i = 0; i < lines.size(); ++i) {
        std::fprintf(m_out, "%s\n", lines.at(i).toLocal8Bit().constData());
        if (m_interactive && (i + 1) % screenful == 0) {
            std::fputs("<Press a return to continue>", m_out);
            std::fflush(m_out);
            Console::readKey();
            // Carriage return, as many blanks as the prompt is long, carriage return.
            std::fputs("\r                            \r", m_out);
        }
    }
}

bool ConsoleLicencePrompt::readAnswer()
{
    for (;;) {
        std::fputs("Do you accept the agreement? [yes/no] ", m_out);
        std::fflush(m_out);
        // At most 63 characters: a longer reply arrives in pieces, none of
        // which is an answer, so each piece asks again.
        char reply[64];
        if (!std::fgets(reply, sizeof reply, m_in))
            return false;
        if (::strcasecmp(reply, "no\n") == 0)
            return false;
        if (::strcasecmp(reply, "yes\n") == 0)
            return true;
    }
}
