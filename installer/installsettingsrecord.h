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
    // Why the last load failed, as the end of "the record PATH: ...":
    // "there is none", "it is damaged", ...
    const QString &failure() const { return m_failure; }

    // A record larger than this is no record this installer wrote.
    static constexpr qint64 MaxSize = qint64(16) << 20;
    // Reads a file the installation keeps beside the record, through its
    // held folder and never through a link. Empty when the content was read,
    // else why not. Run as root, throws HException "Cannot trust the " +
    // what + " PATH: ..." when it or its folder is another user's or others
    // may write to it.
    static QString readTrusted(const QString &path, QByteArray &content, qint64 maxSize = MaxSize,
        const QString &what = QStringLiteral("installation record"));

private:
    InstallConfigurationList *m_list;
    mutable QString m_failure;
};
