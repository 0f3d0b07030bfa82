#pragma once

#include <QApplication>
#include <QTimer>
#include <QWidget>

#include <functional>

// Acts on the next modal dialog or popup menu once its event loop runs, so a
// test can answer a box that the code under test opens and waits for.
// Polls until one appears (the code may do some work first), then runs the
// action once. Delete the returned timer to give up waiting.
inline QTimer *whenModal(std::function<void(QWidget *)> action, bool popup = false)
{
    auto *timer = new QTimer;
    timer->setInterval(10);
    QObject::connect(timer, &QTimer::timeout, timer, [timer, action, popup] {
        QWidget *widget = popup ? QApplication::activePopupWidget() : QApplication::activeModalWidget();
        // A dialog is answered once it has the focus, as a user would see it.
        if (!widget || (!popup && QApplication::activeWindow() != widget))
            return;
        timer->stop();
        timer->deleteLater();
        action(widget);
    });
    timer->start();
    return timer;
}
