#pragma once

namespace InstallMode { enum Mode { Minimal = 0, Typical, Full, Custom, Modify, Repair, Remove, Upgrade }; }
