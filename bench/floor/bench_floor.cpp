// The floor for start-up: the least a Qt widget program can do to put a window on the screen.
// It shows one plain window and, at its first paint, takes the title the timing watches for, so
// that it is timed from the outside exactly like the client and the browser.
//
// Usage: bench_floor [title]   (default "Kestrelgap")
#include <QApplication>
#include <QPainter>
#include <QWidget>

namespace {

class FloorWindow : public QWidget
{
public:
    explicit FloorWindow(const QString& title) : mTitle(title) { }

protected:
    void paintEvent(QPaintEvent*) override
    {
        QPainter(this).fillRect(rect(), QColor(0xf4, 0xf7, 0xf8));
        if (!mPainted) {
            mPainted = true;
            setWindowTitle(mTitle);
        }
    }

private:
    QString mTitle;
    bool mPainted = false;
};

} // namespace

int main(int argc, char** argv)
{
    QApplication app(argc, argv);
    FloorWindow window(argc > 1 ? QString::fromLocal8Bit(argv[1]) : QStringLiteral("Kestrelgap"));
    window.setWindowTitle(QStringLiteral("floor"));
    window.resize(1000, 700);
    window.show();
    return QApplication::exec();
}
