// The licence renderer at the width the first byte picks, and the console's
// plain lines, from arbitrary text.

#include "core/plaintext.h"
#include "core/plaintextrenderer.h"
#include "tests/fuzz/fuzzing.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 1)
        return 0;
    const QByteArray document = bytesOf(data + 1, size - 1);
    const int width = data[0] % 100;
    QString text;
    QString error;
    PlainTextRenderer(width).render(document, &text, &error);
    plainLines(QString::fromUtf8(document));
    return 0;
}
