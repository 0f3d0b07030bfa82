#pragma once

#include "media/installoverwritedecision.h"

class InstallQuestion;

// The rules for replacing an existing file, shared by the files items and the
// media: keep a file of the same time and size, ask about a newer or older
// one, and ask again when the file is read-only. The user's "Yes to All" and
// "No to All" answers are kept in two memories (one for existing files, one
// for read-only files) that hold for the whole process, across items and
// media. User-interface thread only.
class InstallOverwriteTest : public InstallOverwriteDecision
{
public:
    enum Memory { Ask = 0, YesToAll = 1, NoToAll = 2 };

    explicit InstallOverwriteTest(InstallQuestion *question);

    void setQuestion(InstallQuestion *question) { m_question = question; }

    // Throws InstallUserCancelException when a question is cancelled.
    bool shouldOverwrite(qint64 sourceModified, quint64 sourceSize, const QString &destination) override;

    // Forgets both answers, as at the start of the process.
    static void forgetAnswers();

private:
    bool overwriteReadOnly(const QString &destination);

    InstallQuestion *m_question;
};
