// MainWindow: zoom, the login and messenger shapes, and the remembered window state.
#include "mainwindow.h"

#include <QApplication>
#include <QGuiApplication>
#include <QGraphicsWebView>
#include <QJsonObject>
#include <QPointer>
#include <QPropertyAnimation>
#include <QScreen>
#include <QSettings>
#include <QSystemTrayIcon>
#include <QTimer>
#include <cmath>

#include "core/logger.h"
#include "web/indexwindow.h"

namespace {
const QString logModule = QStringLiteral("mainwindow");
const QString logModuleCamel = QStringLiteral("mainWindow");
const char viewProperty[] = "view";

// Shared by every delayed switch to full screen or maximised. Guarded, since it dies with its window.
QPointer<QTimer> windowStateTimer;

QJsonObject* viewMenuJson()
{
    auto* json = new QJsonObject();
    json->insert(QStringLiteral("location"), QStringLiteral("view-menu"));
    return json;
}

QRect primaryScreenGeometry()
{
    QScreen* screen = QGuiApplication::primaryScreen();
    return screen ? screen->geometry() : QRect();
}
}

double MainWindow::computeOsScaleFactor(double originalScaleFactor, int screenWidth, int screenHeight)
{
    // An upright screen counts the same as one lying flat.
    const int width = qMax(screenWidth, screenHeight);
    const int height = qMin(screenWidth, screenHeight);
    const double fit = qMin(width / refWidth, height / refHeight);
    return std::floor(qMax(originalScaleFactor, fit) * 10 + 0.5) / 10;
}

void MainWindow::setUpScaleFactors()
{
    QGraphicsWebView* view = mIndexWindow->webView();
    originalScaleFactor = view->zoomFactor();
    osScaleFactor = view->zoomFactor();

    const QRect rec = primaryScreenGeometry();
    const int width = qMax(rec.width(), rec.height());
    const int height = qMin(rec.width(), rec.height());
    osScaleFactor = computeOsScaleFactor(originalScaleFactor, rec.width(), rec.height());

    Logger::Info(logModule, QStringLiteral("[constructor] - refWidth=") + QString::number(refWidth));
    Logger::Info(logModule, QStringLiteral("[constructor] - refHeight=") + QString::number(refHeight));
    Logger::Info(logModule, QStringLiteral("[constructor] - rec.width=") + QString::number(rec.width()));
    Logger::Info(logModule, QStringLiteral("[constructor] - rec.height=") + QString::number(rec.height()));
    Logger::Info(logModule, QStringLiteral("[constructor] - height=") + QString::number(height));
    Logger::Info(logModule, QStringLiteral("[constructor] - width=") + QString::number(width));
    Logger::Info(logModule, QStringLiteral("[constructor] - osScaleFactor=") + QString::number(osScaleFactor));

    QSettings settings;
    const double savedZoomFactor = settings.value(QStringLiteral("mainWindowZoomFactor"), QStringLiteral("0")).toDouble();
    Logger::Info(logModuleCamel, QStringLiteral("[constructor] - savedZoomFactor=") + QString::number(savedZoomFactor));
    scaleFactor = savedZoomFactor > 0 ? savedZoomFactor : osScaleFactor;
    view->setZoomFactor(scaleFactor);
}

double MainWindow::getOriginalScaleFactor()
{
    return originalScaleFactor;
}

double MainWindow::getScaleFactor()
{
    return scaleFactor;
}

double MainWindow::getOsScaleFactor()
{
    return osScaleFactor;
}

void MainWindow::applyZoom()
{
    mIndexWindow->webView()->setZoomFactor(scaleFactor);
    saveZoomSetting(scaleFactor);
}

void MainWindow::saveZoomSetting(double factor)
{
    Logger::Debug(logModule, QStringLiteral("[saveZoomSetting] - factor=") + QString::number(factor));
    QSettings settings;
    settings.setValue(QStringLiteral("mainWindowZoomFactor"), factor);
}

void MainWindow::zoomIn()
{
    mIndexWindow->logAnalyticsEvent(QStringLiteral("zoom-in-window-qt"), QStringLiteral("view-menu"), viewMenuJson());
    scaleFactor += zoomStep;
    Logger::Info(logModule, QStringLiteral("[zoomIn] - scaleFactor=") + QString::number(scaleFactor));
    if (!mIndexWindow->isActiveWindow())
        mIndexWindow->showMainWindow();
    applyZoom();
}

void MainWindow::zoomOut()
{
    mIndexWindow->logAnalyticsEvent(QStringLiteral("zoom-out-window-qt"), QStringLiteral("view-menu"), viewMenuJson());
    scaleFactor -= zoomStep;
    Logger::Info(logModule, QStringLiteral("[zoomOut] - scaleFactor=") + QString::number(scaleFactor));
    if (!mIndexWindow->isActiveWindow())
        mIndexWindow->showMainWindow();
    applyZoom();
}

void MainWindow::zoomNormal()
{
    Logger::Info(logModule, QStringLiteral("[zoomNormal] - originalScaleFactor=") + QString::number(originalScaleFactor));
    mIndexWindow->logAnalyticsEvent(QStringLiteral("actual-size-window-qt"), QStringLiteral("view-menu"), viewMenuJson());
    mIndexWindow->showMainWindow();
    scaleFactor = originalScaleFactor;
    applyZoom();
}

void MainWindow::saveWindowSettings()
{
    // The login shape is never remembered.
    if (property(viewProperty).toString() != QLatin1String("messenger"))
        return;
    Logger::Info(logModule, QStringLiteral("[saveWindowSettings] called"));
    QSettings settings;
    const QRect rect = geometry();
    settings.setValue(QStringLiteral("mainWindowXPosition"), rect.x());
    settings.setValue(QStringLiteral("mainWindowYPosition"), rect.y());
    settings.setValue(QStringLiteral("mainWindowWidth"), rect.width());
    settings.setValue(QStringLiteral("mainWindowHeight"), rect.height());
    settings.setValue(QStringLiteral("mainWindowIsFullScreen"), isFullScreen());
    settings.setValue(QStringLiteral("mainWindowIsMaximized"), isMaximized());
}

void MainWindow::animateGeometryTo(const QRect& target)
{
    // Kept alive after it stops; the design accepts the small leak.
    auto* animation = new QPropertyAnimation(this, "geometry", nullptr);
    animation->setDuration(animationDuration);
    animation->setStartValue(QRect(frameGeometry().topLeft(), geometry().size()));
    animation->setEndValue(target);
    animation->start();
}

void MainWindow::resizeWindowToLoginSize(bool runAnimation)
{
    const QString view = property(viewProperty).toString();
    Logger::Debug(logModule, QStringLiteral("[resizeWindowToLoginSize] view=") + view);
    if (view == QLatin1String("login"))
        return;
    setProperty(viewProperty, QStringLiteral("login"));

    const QRect screen = primaryScreenGeometry();
    Logger::Info(logModule, QStringLiteral("[resizeWindowToLoginSize] ") + QStringLiteral("height=%1").arg(screen.height()));
    Logger::Info(logModule, QStringLiteral("[resizeWindowToLoginSize] ") + QStringLiteral("width=%1").arg(screen.width()));

    const int width = int(scaleFactor * 600.0);
    const int height = int(scaleFactor * 610.0);
    const int vx = (screen.width() - width) / 2;
    const int vy = (screen.height() - height) / 2;
    Logger::Info(logModule, QStringLiteral("[resizeWindowToLoginSize] - vx=%1, vy=%2, width=%3, height=%4")
            .arg(vx).arg(vy).arg(width).arg(height));

    if (!isVisible())
        show();
    if (runAnimation)
        animateGeometryTo(QRect(vx, vy, width, height));
    else
        setGeometry(vx, vy, width, height);
}

void MainWindow::resizeWindowToMessengerSize(bool runAnimation)
{
    bool startHidden = false;
    if (mIndexWindow->getSetting(QStringLiteral("do-not-launch-main-window-on-start"), QStringLiteral("0"))
            == QLatin1String("1")
        && runAnimation && QSystemTrayIcon::isSystemTrayAvailable()) {
        close();
        startHidden = true;
    }

    const QString view = property(viewProperty).toString();
    Logger::Debug(logModule, QStringLiteral("[resizeWindowToMessengerSize] view=") + view);
    if (view == QLatin1String("messenger"))
        return;
    setProperty(viewProperty, QStringLiteral("messenger"));

    QSettings settings;
    const QRect screen = primaryScreenGeometry();
    Logger::Info(logModule, QStringLiteral("[resizeWindowToMessengerSize] - osScaleFactor=%1, screen width=%2, height=%3")
            .arg(osScaleFactor).arg(screen.width()).arg(screen.height()));

    Logger::Info(logModule, QStringLiteral("[resizeWindowToMessengerSize] - resizing."));
    int width = settings.value(QStringLiteral("mainWindowWidth")).toInt();
    int height = settings.value(QStringLiteral("mainWindowHeight")).toInt();
    int vx = settings.value(QStringLiteral("mainWindowXPosition")).toInt();
    int vy = settings.value(QStringLiteral("mainWindowYPosition")).toInt();
    Logger::Info(logModule, QStringLiteral("[resizeWindowToMessengerSize] - width=%1, height=%2, vx=%3, vy=%4")
            .arg(width).arg(height).arg(vx).arg(vy));

    if (width == 0 && height == 0 && vx == 0 && vy == 0) {
        width = int(osScaleFactor * 1366.0);
        if (width <= screen.width()) {
            vx = (screen.width() - width) / 2;
        } else {
            vx = int(12.0 * osScaleFactor);
            width = screen.width() - 2 * vx;
        }
        height = int(osScaleFactor * 768.0);
        if (height <= screen.height()) {
            vy = (screen.height() - height) / 2;
        } else {
            // Only half the top margin comes off the height; the foot sits half a margin low on purpose.
            vy = int(33.0 * osScaleFactor);
            height = screen.height() - vy / 2;
        }
    }

    const bool doFullScreen = settings.value(QStringLiteral("mainWindowIsFullScreen")).toBool();
    bool doMaximized = settings.value(QStringLiteral("mainWindowIsMaximized")).toBool();
    if (vx == 0 && vy == 0 && height == screen.height() && width == screen.width())
        doMaximized = true;

    if (!isVisible() && !startHidden)
        show();
    Logger::Info(logModule, QStringLiteral("[resizeWindowToMessengerSize] - vx=%1, vy=%2").arg(vx).arg(vy));
    if (runAnimation && !startHidden)
        animateGeometryTo(QRect(vx, vy, width, height));
    else
        setGeometry(vx, vy, width, height);

    Logger::Info(logModule, QStringLiteral("[resizeWindowToMessengerSize] - doFullScreen=") + QVariant(doFullScreen).toString());
    if (doFullScreen) {
        startDelayedStateSwitch(SLOT(resizeToFullScreen()));
        return;
    }
    Logger::Info(logModule, QStringLiteral("[resizeWindowToMessengerSize] - doMaximized=") + QVariant(doMaximized).toString());
    if (doMaximized)
        startDelayedStateSwitch(SLOT(resizeToMaximized()));
}

void MainWindow::startDelayedStateSwitch(const char* slot)
{
    // Longer than the animation, so the state changes after it has ended.
    windowStateTimer = new QTimer(this);
    connect(windowStateTimer, SIGNAL(timeout()), this, slot);
    windowStateTimer->start(maximiseDelay);
}

void MainWindow::resizeToFullScreen()
{
    // Also a public slot: it can run with no switch pending.
    if (windowStateTimer)
        windowStateTimer->stop();
    showFullScreen();
}

void MainWindow::resizeToMaximized()
{
    Logger::Info(logModule, QStringLiteral("[resizeToMaximized] - called"));
    if (windowStateTimer)
        windowStateTimer->stop();
    showMaximized();
}
