#pragma once

#include <QString>
#include <QStringList>

// The first pass over the command line, made by the process entry before any
// toolkit object exists. It only decides whether the process shows the help
// page, runs the console-only copy-files mode, or goes on to the installer;
// unknown arguments are left for the second pass, which sees the whole vector.
class EntryCommandLine
{
public:
    enum Outcome {
        Continue, // no help page; copyFilesMode() tells which way to go
        Help, // "--help" was given: print helpPage() and exit 1
        ArgumentExpected, // an option lacked its value: "argument expected", exit 1
    };

    // Walks the arguments after the program name.
    Outcome parse(const QStringList &arguments);

    bool copyFilesMode() const { return m_copyFilesMode; }
    const QString &copyDestination() const { return m_copyDestination; }
    bool hasDataFile() const { return m_hasDataFile; }
    const QString &dataFile() const { return m_dataFile; }
    // The "--data-offset" text as given; dataOffset() is its value.
    const QString &dataOffsetText() const { return m_dataOffsetText; }
    // Unsigned 32-bit hexadecimal without prefix; 0 when it does not convert.
    quint32 dataOffset() const;
    bool showProgress() const { return m_showProgress; }
    bool verbose() const { return m_verbose; }
    bool licenceAccepted() const { return m_licenceAccepted; }

    // The help page, every line ending in a line feed.
    static QString helpPage();

private:
    bool m_copyFilesMode = false;
    QString m_copyDestination;
    bool m_hasDataFile = false;
    QString m_dataFile;
    QString m_dataOffsetText;
    bool m_showProgress = true;
    bool m_verbose = false;
    bool m_licenceAccepted = false;
};
