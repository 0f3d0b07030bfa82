#pragma once

#include <QMap>
#include <QRegularExpression>
#include <QString>

// The process-wide table of "$(Name)" macros. Values are stored unexpanded and
// expanded immediately before use, so a later change (a destination picked in
// the wizard, a restored record) reaches every text that refers to it.
// Lives for the whole process; reach it through macros(). User-interface thread only.
class MacroTable
{
public:
    MacroTable() = default;

    void set(const QString &name, const QString &value);
    // As set, and marks the entry as a path.
    void setPath(const QString &name, const QString &value);
    // The unexpanded value; an unknown name is inserted with an empty value.
    QString get(const QString &name);
    bool isPath(const QString &name) const;
    bool contains(const QString &name) const { return m_entries.contains(name); }
    // Names in ascending character-code order.
    QStringList names() const { return m_entries.keys(); }

    // Replaces every reference by its value, pass after pass, until a pass
    // changes nothing. Undefined names stay as they are. A value that refers
    // to itself beside other text would grow without end: expansion stops
    // after one pass per entry and one more, which resolves any chain that
    // ends, or before a pass would make the text MaxGrowth characters longer
    // than it was given, and returns the text of the last whole pass.
    QString expand(const QString &text) const;
    static constexpr qsizetype MaxGrowth = 1 << 16;

    // Fills the start-up defaults from the product information. Overwrites
    // values, never removes names.
    void setDefaults();

    // The text with a backslash before every regular-expression character, so
    // that an expanded path can be searched for literally.
    static QString escapeForPattern(const QString &text);

private:
    struct Entry
    {
        QString value;
        bool path = false;
        QRegularExpression pattern;
    };

    Entry &entry(const QString &name);
    static bool fits(
        const QRegularExpression &pattern, const QString &value, const QString &text, qsizetype room);

    QMap<QString, Entry> m_entries;
};

MacroTable &macros();

// Shorthand for macros().expand(text).
QString expandMacros(const QString &text);
