#pragma once

#include <QIcon>
#include <QPixmap>

// The wizard's own images, compiled into the library. A static library's
// resources are only linked in when something refers to them, so every user
// goes through these functions, which make sure they are registered.
namespace WizardResources {
QPixmap headerImage();
// Feature tree states: to be installed with everything below, in part, not at all.
QIcon installedIcon();
QIcon partlyInstalledIcon();
QIcon notInstalledIcon();
QPixmap questionIcon();
} // namespace WizardResources
