#pragma once

#include <QString>

// The one way the plan and the media ask the user something. The wizard answers
// with its question box, a silent run by rule, tests by script. Items never see
// a widget. Called on the user-interface thread only.
class InstallQuestion
{
public:
    // Buttons, in the order a box lays them out; a question offers a bit set
    // of them and gets back the bit of the one chosen.
    enum Button {
        Yes = 1,
        YesToAll = 2,
        Ok = 4,
        Retry = 8,
        No = 16,
        NoToAll = 32,
        Ignore = 64,
        IgnoreAll = 128,
        Cancel = 256,
    };

    virtual ~InstallQuestion() = default;

    // Returns one of the offered buttons.
    virtual int ask(const QString &heading, const QString &text, int buttons, int defaultButton) = 0;

    // Asks where a missing file is. Returns the chosen path, or an empty text
    // when it cannot be located (cancelled, or no way to ask).
    virtual QString locateFile(const QString &path) = 0;
};
