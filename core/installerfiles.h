#pragma once

#include <QStringList>

// The files that make up the installer itself, kept in "$(InstallerDir)" so
// that a later run can modify, repair, upgrade or remove the installation.
namespace InstallerFiles {

// Unexpanded macro texts, in order: the running executable, the Qt libraries
// it links (core, gui, widgets, network, xml, then what those need), and the
// uninstaller.
QStringList list();

} // namespace InstallerFiles
