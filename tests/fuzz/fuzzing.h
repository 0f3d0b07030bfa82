// What the fuzz targets share: a quiet start, the input as a stdio stream, and
// a check that stops the run where an invariant breaks.
#pragma once

#include <QByteArray>
#include <QtGlobal>

#include <cstdint>
#include <cstdio>

// Each target includes this once. Messages the product logs for every
// damaged input would drown the fuzzer's.
extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext &, const QString &) {});
    return 0;
}

// The readers take stdio files; bytes must outlive the stream.
inline FILE *openBytes(QByteArray &bytes)
{
    return ::fmemopen(bytes.data(), size_t(bytes.size()), "rb");
}

inline QByteArray bytesOf(const uint8_t *data, size_t size)
{
    return QByteArray(reinterpret_cast<const char *>(data), qsizetype(size));
}

// A trap, so that the fuzzer keeps the input, also in a build without assertions.
inline void require(bool condition)
{
    if (!condition)
        __builtin_trap();
}
