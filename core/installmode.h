#pragma once

// Installation modes shared by the plan and the application.
namespace InstallMode {
enum Mode : int { Minimal = 0, Typical, Full, Custom, Modify, Repair, Remove, Upgrade };

// The four modes of a first installation, as against maintaining one.
inline bool isInstallation(int mode)
{
    return mode >= Minimal && mode <= Custom;
}
} // namespace InstallMode
