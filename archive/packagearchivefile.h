#pragma once

#include "archive/packagearchivedata.h"

// A light handle on one member of a PackageArchive. It stays valid as long as
// the archive lives and is not reopened. A default-constructed handle is null
// (what find() returns for a name that is not there).
class PackageArchiveFile
{
public:
    PackageArchiveFile() = default;
    explicit PackageArchiveFile(PackageArchiveData *data)
        : m_data(data)
    { }

    bool isNull() const { return m_data == nullptr; }
    PackageArchiveData *data() const { return m_data; }

    QString name() const { return m_data->name; }
    void setName(const QString &name) { m_data->name = name; }
    quint32 size() const { return m_data->size; }
    void setSize(quint32 size) { m_data->size = size; }
    quint32 mode() const { return m_data->mode; }
    void setMode(quint32 mode) { m_data->mode = mode; }
    QDateTime time() const { return m_data->time; }
    void setTime(const QDateTime &time) { m_data->time = time; }
    bool isSelected() const { return m_data->selected != 0; }
    void setSelected(bool selected) { m_data->selected = selected ? 1 : 0; }
    // Nobody may write it: none of the bits 0222 is set.
    bool isReadOnly() const { return (m_data->mode & 0222) == 0; }

    bool operator==(const PackageArchiveFile &other) const { return m_data == other.m_data; }
    bool operator!=(const PackageArchiveFile &other) const { return m_data != other.m_data; }

private:
    PackageArchiveData *m_data = nullptr;
};
