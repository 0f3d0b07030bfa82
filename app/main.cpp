#include "installer/processentry.h"

#include <QCoreApplication>

int main(int argc, char *argv[])
{
    ProcessEntry entry(argc, argv);
    const int status = entry.runConsoleModes();
    if (status != ProcessEntry::GoOn)
        return status;

    entry.prepareInstaller();
    QCoreApplication application(argc, argv);
    if (entry.handOverToRunningInstance())
        return 0;
    entry.finish(entry.runInstaller());
}
