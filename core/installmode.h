#pragma once

// Installation modes shared by the plan and the application.
namespace InstallMode {
enum Mode : int { Minimal = 0, Typical, Full, Custom, Modify, Repair, Remove, Upgrade };
}
