#pragma once

class InstallConfigurationList;

// "Setup --verify": reads the record and the manifest of the installation
// under "$(DestDir)" and compares every file the manifest lists with the
// disk. Prints one line per file that differs on standard output (what
// differs, then the path), then a line with the counts. Needs no medium and
// writes nothing. User-interface thread only.
class InstallVerification
{
public:
    enum Outcome { Intact, Differs, Failed };

    explicit InstallVerification(InstallConfigurationList *list);
    // Failed has printed its "error: " line on standard error.
    Outcome run();

private:
    InstallConfigurationList *m_list;
};
