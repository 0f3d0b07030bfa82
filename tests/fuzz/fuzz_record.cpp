// The installation record from arbitrary bytes, read against the product's
// own plan in the mode the first byte picks. A record that loads restores
// only absolute folders.

#include "core/hexception.h"
#include "core/macrotable.h"
#include "installer/installsettingsrecord.h"
#include "plan/configurationlist.h"
#include "tests/fuzz/fuzzing.h"
#include "tests/plan/scriptedquestion.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    // A folder of root's own, as the record's must be.
    static const QTemporaryDir folder;
    static const QString path = folder.filePath(QStringLiteral("IConf.xml"));
    if (size < 1)
        return 0;
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate)
        || file.write(reinterpret_cast<const char *>(data) + 1, qint64(size) - 1) != qint64(size) - 1)
        return 0;
    file.close();
    macros().setDefaults();
    ConfigurationList list;
    FixedMode mode(data[0] % (InstallMode::Upgrade + 1));
    list.setModeSource(&mode);
    try {
        if (InstallSettingsRecord(&list).load(path)) {
            require(QDir::isAbsolutePath(expandMacros(QStringLiteral("$(DestDir)"))));
            require(QDir::isAbsolutePath(expandMacros(QStringLiteral("$(SrcDir)"))));
        }
    } catch (const HException &) { }
    return 0;
}
