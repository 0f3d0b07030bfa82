#pragma once

#include <QString>

class QWidget;

// The installer's directory chooser. Qt's own dialog rather than the
// desktop's, so it looks the same under sudo and can be driven by tests (its
// object name is "folder-chooser").
namespace InstallFolderChooser {
// Returns the chosen folder, or an empty text when cancelled.
QString choose(QWidget *parent, const QString &caption, const QString &startFolder);
} // namespace InstallFolderChooser
