#pragma once

#include <QApplication>
#include <QList>
#include <QPointer>
#include <QTimer>
#include <QWidget>

#include <functional>

// Answers modal dialogs of one type from inside their own event loop: every new, visible instance
// that becomes the active modal widget is handed to `answer` once. Lives for one test.
template <typename Dialog>
class ModalAnswer
{
public:
    explicit ModalAnswer(std::function<void(Dialog*)> answer)
        : mAnswer(std::move(answer))
    {
        QObject::connect(&mPoll, &QTimer::timeout, [this] { poll(); });
        mPoll.start(10);
    }

    int count() const { return mCount; }

private:
    void poll()
    {
        auto* dialog = qobject_cast<Dialog*>(QApplication::activeModalWidget());
        if (!dialog || !dialog->isVisible())
            return;
        for (const QPointer<QWidget>& seen : qAsConst(mSeen)) {
            if (seen == dialog)
                return;
        }
        mSeen.append(dialog);
        ++mCount;
        mAnswer(dialog);
    }

    std::function<void(Dialog*)> mAnswer;
    QTimer mPoll;
    QList<QPointer<QWidget>> mSeen;
    int mCount = 0;
};
