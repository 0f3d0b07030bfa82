#pragma once

#include "archive/packagearchivebzblockdecoder.h"
#include "archive/packagearchivecompressedinputfile.h"

#include <QByteArray>

#include <memory>
#include <vector>

// Decompresses a bzip2 stream (compression kind 1) from a stdio file. The
// stream's blocks are decoded in parallel; the first block that is anything
// but plain sends the stream back to a sequential reader, libbz2's stdio
// reader's steps on a kept table, which takes up at the same position and
// fails where that reader would. The places of the
// blocks passed are kept, so a seek resumes at the block that holds its target;
// a seek into the block last decoded, the stream's last block included, takes
// its bytes again without decoding them.
class PackageArchiveCompressedBzInputFile : public PackageArchiveCompressedInputFile
{
public:
    explicit PackageArchiveCompressedBzInputFile(FILE *file);
    ~PackageArchiveCompressedBzInputFile() override;

    // How often the stream went back to libbz2's reader: never on a valid
    // stream, whose every block the parallel decoder handles.
    int fallbacks() const { return m_fallbacks; }

protected:
    void init() override;
    void end() override;
    void readChunk(char *buffer, qint32 size) override;
    quint64 resumeBefore(quint64 target) const override;
    bool resumeAt(quint64 position) override;

private:
    // Leaves the parallel decoder for libbz2's reader at position.
    void fallBack(quint64 position);
    // The decoder's next block into m_block; at the end of the stream the
    // last block stays there, wholly used. False when the stream is unusual.
    bool nextBlock();
    // Uncompressed position of m_block's first byte.
    quint64 blockPosition() const { return m_produced - quint64(m_blockUsed); }
    struct Sequential;
    void openSequential();
    void readSequential(char *buffer, qint32 size);

    std::unique_ptr<Sequential> m_sequential;
    std::unique_ptr<PackageArchiveBzBlockDecoder> m_decoder;
    // False once the stream has shown something unusual.
    bool m_parallel = true;
    int m_fallbacks = 0;
    QByteArray m_block;
    qint32 m_blockUsed = 0;
    // Uncompressed position of the next byte the decoder delivers.
    quint64 m_produced = 0;
    std::vector<PackageArchiveBzBlockDecoder::Place> m_places;
};
