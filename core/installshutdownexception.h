#pragma once

// Ends a run early from deep inside an operation (a termination signal seen
// at a checkpoint); the operation writes the record of what it did and
// passes it on, and the run routine ends the run without waiting for anyone.
class InstallShutdownException
{ };
