#pragma once

// Thrown when the user chooses to terminate (Cancel in a question, Yes to
// "terminate the installation?"); ends the whole run and is never swallowed by
// the item walks.
class InstallUserCancelException
{ };
