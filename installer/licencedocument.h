#pragma once

#include <QByteArray>

// The end-user licence agreement embedded in the executable (an HTML 4.01
// document that is also well-formed XML).
namespace LicenceDocument {

// The document's bytes, referring to the embedded data without a copy; empty
// when the executable carries no agreement.
QByteArray bytes();

} // namespace LicenceDocument
