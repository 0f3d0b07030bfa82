#pragma once

// Ends a run early from deep inside an operation (for example a termination
// signal); the run routine catches it and passes it on.
class InstallShutdownException
{ };
