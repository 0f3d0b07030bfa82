#pragma once

#include <QFrame>

// A flat progress bar with the percentage drawn in its middle. Progress -1
// means not started and draws an empty bar without text.
class StudioProgressBar : public QFrame
{
    Q_OBJECT
    Q_DISABLE_COPY(StudioProgressBar)

public:
    explicit StudioProgressBar(QWidget *parent = nullptr);
    ~StudioProgressBar() override;

    int totalSteps() const { return m_totalSteps; }
    int progress() const { return m_progress; }
    // 0 to 100; -1 when not started.
    int percentage() const;

    QSize sizeHint() const override;

public slots:
    void setTotalSteps(int steps);
    void setProgress(int progress);
    // Back to not started.
    void reset();

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    int m_totalSteps = 100;
    int m_progress = -1;
};
