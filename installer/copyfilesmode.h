#pragma once

#include "archive/packagearchive.h"
#include "core/entrycommandline.h"

#include <QString>

class TextProgressBar;

// The console-only mode: copies every installation file (the installer's own
// files first) into a directory without installing anything. Needs a
// QCoreApplication; never opens a window.
class CopyFilesMode
{
public:
    explicit CopyFilesMode(const EntryCommandLine &options);

    // Runs the whole mode. Throws HException with the console message
    // ("License agreement not accepted", "cannot mkdir ...", ...).
    void run();

private:
    void checkDestination();
    void makeDestination();
    void copyInstallerFiles(TextProgressBar &bar);
    void copyArchiveMembers(TextProgressBar &bar);

    const EntryCommandLine &m_options;
    int m_columns = 0;
    int m_rows = 0;
    QString m_destination;
    // Empty unless "--data-file" was given.
    PackageArchive m_archive;
};
