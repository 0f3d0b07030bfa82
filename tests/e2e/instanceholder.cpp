// Holds the installer's single-instance identifier like a running installer
// would, so that a test can start the real Setup as the second instance.
// Prints "ready" once it listens and "message received" when Setup reports in.
#include "installer/installsingleinstance.h"
#include "installer/processentry.h"

#include <QCoreApplication>
#include <QTimer>

#include <cstdio>

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    InstallSingleInstance instance(ProcessEntry::instanceIdentifier());
    if (instance.isRunning()) {
        std::puts("already running");
        return 2;
    }
    QObject::connect(
        &instance, &InstallSingleInstance::messageReceived, &application, [](const QString &message) {
            std::printf("message received: '%s'\n", qPrintable(message));
            std::fflush(stdout);
            QCoreApplication::exit(0);
        });
    // Never outlive a test that died before sending.
    QTimer::singleShot(120000, &application, [] { QCoreApplication::exit(3); });
    std::puts("ready");
    std::fflush(stdout);
    return application.exec();
}
