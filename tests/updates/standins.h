#pragma once

#include <QApplication>
#include <QDialog>
#include <QFile>
#include <QPointer>
#include <QPushButton>
#include <QTimer>

#include <functional>

#include "httpserver.h"
#include "platform/fileopener.h"
#include "platform/updatehandover.h"

struct RecordingFileOpener : FileOpener {
    RecordingFileOpener() { FileOpener::setInstance(this); }
    ~RecordingFileOpener() override { FileOpener::setInstance(nullptr); }
    void openFile(const QString& path) override { opened.append(path); }
    void showInFolder(const QString& path) override { shown.append(path); }
    QStringList opened, shown;
};

// Records the hand-over and the installer as it stood then; closes the dialog instead of the process.
struct RecordingHandOver : UpdateHandOver {
    RecordingHandOver() { UpdateHandOver::setInstance(this); }
    ~RecordingHandOver() override { UpdateHandOver::setInstance(nullptr); }
    void start(QObject* owner, const QString& folder, const QString& pid, const QString& installer, const QString& volume) override
    {
        arguments = QStringList { folder, pid, installer, volume };
        QFile file(installer);
        if (file.open(QIODevice::ReadOnly))
            installerContent = file.readAll();
        QMetaObject::invokeMethod(owner, "reject", Qt::QueuedConnection);
    }
    QString refusal(const QString&) const override { return refused; }
    QString refused;
    QStringList arguments;
    QByteArray installerContent;
};

// Answers each new visible modal dialog of one type, from inside its own event loop.
template <typename Dialog>
class ModalAnswer
{
public:
    explicit ModalAnswer(std::function<void(Dialog*)> answer)
    {
        QObject::connect(&mPoll, &QTimer::timeout, [this, answer] {
            auto* dialog = qobject_cast<Dialog*>(QApplication::activeModalWidget());
            if (!dialog || !dialog->isVisible() || mSeen.contains(dialog))
                return;
            mSeen.append(dialog);
            answer(dialog);
        });
        mPoll.start(10);
    }
    int count() const { return mSeen.size(); }

private:
    QTimer mPoll;
    QList<QPointer<QWidget>> mSeen;
};

inline QPushButton* buttonWithText(QWidget* dialog, const QString& text)
{
    for (QPushButton* button : dialog->findChildren<QPushButton*>()) {
        if (button->text().remove(QLatin1Char('&')).trimmed() == text)
            return button;
    }
    return nullptr;
}

// Runs a call that opens modal dialogs; true unless what was still open after 20 s had to be closed.
template <typename Call>
bool runModal(Call call)
{
    bool timedOut = false;
    QTimer guard;
    guard.setSingleShot(true);
    QObject::connect(&guard, &QTimer::timeout, [&] {
        timedOut = true;
        while (auto* open = qobject_cast<QDialog*>(QApplication::activeModalWidget()))
            open->reject();
    });
    guard.start(20000);
    call();
    return !timedOut;
}
