#pragma once

#include <QtGlobal>

// A stream the package archive reads its body from or writes it to. Reads and
// writes return a count or status; what the count means is up to the stream
// (the plain stream counts whole blocks, the compressed ones bytes).
class PackageArchiveIOFileInterface
{
public:
    virtual ~PackageArchiveIOFileInterface() = default;

    virtual qint32 read(char *buffer, qint32 size) = 0;
    virtual qint32 write(const char *buffer, qint32 size) = 0;
    // Moves to an absolute position; 0 on success, -1 on failure.
    virtual qint32 seek(qint64 position) = 0;
    // Ends a stream that was written: what is buffered goes into the file,
    // which is closed. False when that failed; a compressing stream throws
    // HException with its own message instead.
    virtual bool finishWriting() = 0;
};
