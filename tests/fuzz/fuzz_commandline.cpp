// Both passes over a command line made of the input's lines, on a table of
// the defaults, then the expansion of every argument and every macro the
// line defined: "--set" values refer to each other and to themselves.

#include "core/entrycommandline.h"
#include "core/hexception.h"
#include "core/installcommandline.h"
#include "core/macrotable.h"
#include "tests/fuzz/fuzzing.h"

#include <QStringList>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QStringList arguments = QString::fromUtf8(bytesOf(data, size)).split(QLatin1Char('\n'));
    EntryCommandLine().parse(arguments);
    MacroTable table;
    table.setDefaults();
    try {
        InstallCommandLine line;
        line.parse(arguments, table);
        line.dataOffset();
    } catch (const HException &) { }
    for (const QString &argument : arguments)
        table.expand(argument);
    for (const QString &name : table.names())
        table.expand(QStringLiteral("$(") + name + QLatin1Char(')'));
    return 0;
}
