// The floor for start-up: the least a Qt widget program can do to put a window on the screen.
// It shows one plain window and, at its first paint, takes the title the timing watches for, so
// that it is timed from the outside exactly like the client and the browser.
//
// Usage: bench_floor [--raster] [title]   (default "Kestrelgap")
//   --raster  paint in software only, which keeps Qt's GL integration from loading; the runner
//             sets the two side by side to see what that integration costs
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
    int first = 1;
    if (argc > 1 && qstrcmp(argv[1], "--raster") == 0) {
        QCoreApplication::setAttribute(Qt::AA_ForceRasterWidgets);
        ++first;
    }
    QApplication app(argc, argv);
    FloorWindow window(argc > first ? QString::fromLocal8Bit(argv[first]) : QStringLiteral("Kestrelgap"));
    window.setWindowTitle(QStringLiteral("floor"));
    window.resize(1000, 700);
    window.show();
    return QApplication::exec();
}
