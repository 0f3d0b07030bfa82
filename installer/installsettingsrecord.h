#pragma once

#include <QString>

class InstallConfigurationList;

// The record an installation leaves in "$(InstallerDir)/IConf.xml" so that a
// later run can modify, repair, upgrade or remove it: the destination, the
// source and the program folder, and the state of every item of the plan.
//
//   <!DOCTYPE Install>
//   <configuration dest_dir="/opt/calvra" src_dir="/media/cd" program_folder_dir="Tamrin/calvra">
//    <plan ...>          (the items' state, see InstallConfigurationState)
//   </configuration>
//
// The three paths are stored expanded. The document is written as ASCII (other
// characters do not survive) and always in the order above, so the same
// installation always gives the same bytes. Reading restores the macros
// DestDir, ProgramFolderDir and ProgramFolderName, and SrcDir only in Modify
// and Repair mode: in every other mode the source is the one this run was
// started from. The plan and its mode come from the configuration list, which
// the record does not own. User-interface thread only.
class InstallSettingsRecord
{
public:
    explicit InstallSettingsRecord(InstallConfigurationList *list);

    // The expansion of "$(InstallerDir)/IConf.xml".
    static QString defaultPath();

    // Writes the record, replacing the file, and stores the values of the
    // plan's settings keys. False when the plan's state cannot be written; a
    // file that cannot be opened is not reported.
    bool save(const QString &path) const;
    // False, with no macro and no item changed, when the file is missing,
    // unreadable, not a regular file, not well-formed, names a file that is
    // not a plain relative name, holds a relative folder, or describes
    // another plan. Run as root, throws HException naming the file when it
    // or its folder belongs to another user or others may write to it.
    bool load(const QString &path) const;

private:
    // A record larger than this is no record this installer wrote.
    static constexpr qint64 MaxSize = qint64(16) << 20;
    static bool readTrusted(const QString &path, QByteArray &content);

    InstallConfigurationList *m_list;
};
