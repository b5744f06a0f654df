#include <QtTest>

#include <QDir>
#include <QProcess>
#include <QSet>
#include <QTemporaryDir>
#include <QTranslator>
#include <QXmlStreamReader>

#include "resourceinit.h"

namespace {

struct CatalogueRow
{
    const char* context;
    const char* source;
    const char* french; // empty: no translation, the source text shows
    const char* spanish;
};

// What the shipped catalogues must hold, typed out on its own so that a slip in the .ts files shows.
const CatalogueRow catalogueRows[] = {
    {"AboutDialog", "About", "À propos", "Acerca de"},
    {"AboutDialog", "Check for updates", "Rechercher des mises à jour", "Comprobar si hay actualizaciones"},
    {"AboutDialog", "Version ", "Version ", "Versión "},
    {"AboutDialog", "version", "version", "versión"},
    {"ConfirmDownloadUpdate", "I'll do this later", "Je le ferai plus tard", "Haré esto más adelante"},
    {"ConfirmDownloadUpdate", "New Version", "Nouvelle version", "Nueva versión"},
    {"ConfirmDownloadUpdate", "Yes", "Oui", "Sí"},
    {"CookieModel", "Contents", "Contenus", "Contenido"},
    {"CookieModel", "Expires", "Expire", "Expira"},
    {"CookieModel", "Name", "Prénom", "Nombre"},
    {"CookieModel", "Path", "Chemin", "Ruta"},
    {"CookieModel", "Secure", "Chemin", "Seguro"},
    {"CookieModel", "Website", "Site Web", "Sitio web"},
    {"IndexWindow", "Close", "Fermer", "Cerrar"},
    {"IndexWindow", "DOWNLOADED", "TÉLÉCHARGÉ", "DESCARGADO"},
    {"LatestInstalledDialog", "You are running the latest version of Kestrelgap!",
        "Vous utilisez la dernière version de Kestrelgap!",
        "¡Está ejecutando la última versión de Kestrelgap!"},
    {"MainWindow", "About", "À propos", "Acerca de"},
    {"MainWindow", "Actual Size", "Taille actuelle", "Tamaño real"},
    {"MainWindow", "Close", "Fermer", "Cerrar"},
    {"MainWindow", "Minimize", "Minimiser", "Minimizar"},
    {"MainWindow", "New Message...", "Nouveau message...", "Nuevo mensaje..."},
    {"MainWindow", "Open Kestrelgap", "Ouvrir Kestrelgap", "Abrir Kestrelgap "},
    {"MainWindow", "Preferences", "Préférences", "Preferencias"},
    {"MainWindow", "Quit", "Quitter", "Dejar"},
    {"MainWindow", "Shortcuts", "Raccourcis", "Accesos directos"},
    {"MainWindow", "Sign Out", "Se déconnecter", "Desconectar"},
    {"MainWindow", "Zoom In", "Agrandir", "Aumentar el zoom"},
    {"MainWindow", "Zoom Out", "Dézoomer", "Disminuir el zoom"},
    {"MediaDownloaderDialog", "Cancel", "Annuler", "Cancelar"},
    {"MediaDownloaderDialog", "Download Complete", "Téléchargement complet", "Descarga completa"},
    {"MediaDownloaderDialog", "Download in progress...", "Téléchargement en cours...", "Descarga en curso..."},
    {"MediaDownloaderDialog", "Error downloading update.",
        "Erreur de téléchargement de la mise à jour.",
        "Error al descargar la actualización."},
    {"MediaDownloaderDialog", "Kestrelgap", "", ""},
    {"MediaDownloaderDialog", "Open", "Ouvrir", "Abrir"},
    {"MediaDownloaderDialog", "Show in Finder", "Afficher dans le dossier", "Mostrar en la carpeta"},
    {"MediaDownloaderDialog", "Show in Folder", "Afficher dans le dossier", "Mostrar en la carpeta"},
    {"Notificator", " image from location \"file://%1\"",
        "image de l'emplacement \"file://%1\"",
        "imagen de la ubicación \"file://%1\""},
    {"QMessageBox", "A debug version of the app is already running.",
        "Une version de débogage de l'application est déjà en cours d'exécution.",
        "Ya se está ejecutando una versión de depuración de la aplicación."},
    {"SettingsDialog", "Choose...", "Choisissez...", "Escoger..."},
    {"SettingsDialog", "Debug", "Débogage", "Depurar"},
    {"SettingsDialog", "Debug code:", "Code de débogage :", "Código de depuración:"},
    {"SettingsDialog", "Default", "Default", "Default"},
    {"SettingsDialog", "Default Download Location",
        " Emplacement de téléchargement par défaut",
        "Ubicación de descarga por defecto"},
    {"SettingsDialog", "Display Language", "Langue d'affichage", "Idioma de la pantalla"},
    {"SettingsDialog", "Display both the name of the sender and the message",
        "Afficher le nom de l'expéditeur et le message",
        "Mostrar el nombre del remitente y el mensaje"},
    {"SettingsDialog", "Do not show notifications", "Ne pas afficher les notifications", "No mostrar notificaciones"},
    {"SettingsDialog", "Don't show main app window when Kestrelgap launches",
        "Ne pas afficher la fenêtre de l'application principale lorsque Kestrelgap démarre",
        "No mostrar la ventana principal de la aplicación cuando se inicia Kestrelgap"},
    {"SettingsDialog", "Enable Logging", "Activer la journalisation", "Habilitar el registro"},
    {"SettingsDialog", "Launch Kestrelgap when my computer starts",
        "Démarrer Kestrelgap lorsque mon ordinateur démarre",
        "Iniciar Kestrelgap cuando se inicie el ordenador"},
    {"SettingsDialog", "Launch Settings", "Paramètres de démarrage", "Iniciar Ajustes"},
    {"SettingsDialog", "Make sure to turn Kestrelgap notifications on in System Preferences > Notifications > Play "
        "sound for notifications",
        "Assurez-vous de désactiver les notifications Kestrelgap dans Préférences Système> Notifications> Lire le son "
        "pour les notifications",
        "Asegúrese de activar las notificaciones Kestrelgap en Preferencias del sistema> Notificaciones> Reproducir "
        "sonido para las notificaciones"},
    {"SettingsDialog", "Message Notifications Privacy",
        "Message de notifications de confidentialité",
        "Mensaje de Notificaciones de Privacidad"},
    {"SettingsDialog", "No log file found.", "Aucun fichier journal trouvé.", "No se encontró archivo de registro."},
    {"SettingsDialog", "Notification Sound:", "Son de notification", "Sonido de notificación"},
    {"SettingsDialog", "Notifications", "Notifications", "Notificaciones"},
    {"SettingsDialog", "Notify me on my computer when my phone battery is fully charged",
        "Me notifier sur mon ordinateur lorsque la batterie de mon téléphone est complètement chargée",
        "Notificarme en mi equipo cuando la batería de mi teléfono esté completamente cargada"},
    {"SettingsDialog", "Notify me on my computer when my phone battery is low",
        "Me notifier sur mon ordinateur lorsque la batterie de mon téléphone est faible",
        "Notificarme en mi equipo cuando la batería de mi teléfono esté baja"},
    {"SettingsDialog", "Only display the name of the sender",
        "Seulement afficher le nom de l'expéditeur",
        "Sólo mostrar el nombre del remitente"},
    {"SettingsDialog", "Open Log", "Ouvrir le journal", "Abrir registro"},
    {"SettingsDialog", "Pillsbury", "Pillsbury", "Pillsbury"},
    {"SettingsDialog", "Ping", "Ping", "Ping"},
    {"SettingsDialog", "Play sound for notifications",
        "Lire le son pour les notifications",
        "Reproducir sonido para las notificaciones"},
    {"SettingsDialog", "Preferences", "Préférences", "Preferencias"},
    {"SettingsDialog", "Preview", "Aperçu", "Avance"},
    {"SettingsDialog", "Set Language", "Définir la Langue", "Elegir Lenguaje"},
    {"SettingsDialog", "Spring", "Spring", "Spring"},
    {"SettingsDialog", "Tink", "Tink", "Tink"},
    {"SettingsDialog", "Use Mac Notification Center notifications",
        "Utiliser les notifications du centre de notification de Mac ",
        "Usar notificaciones del centro de notificación de Mac"},
    {"SettingsDialog", "Use Quick Reply notifications",
        "Utiliser les notifications de réponse rapide",
        "Utilizar las notificaciones de respuesta rápida"},
    {"SettingsDialog", "Use Windows Taskbar notifications",
        "Utilisez les notifications de la barre des tâches de Windows",
        "Utilice las notificaciones de la barra de tareas de Windows "},
    {"SettingsDialog", "Yeah", "Yeah", "Yeah"},
    {"SettingsDialog", "To manage Taskbar notification sounds, navigate to\nControl Panel > Sound > Sounds > Program "
        "Events > Notification.",
        "Pour gérer la notification Taskbar sons, accédez à\nPanneau de configuration > Son > Sons > Événements > "
        "Notification ",
        "Para administrar los sonidos de notificación barra de tareas, vaya a\nPanel de control > Sonido > Sonidos > "
        "Eventos de programa > Notificación"},
    {"StatusBarIconActions", "Are you sure you want to quit Kestrelgap?",
        "Êtes-vous sûr de vouloir quitter Kestrelgap?",
        "¿Está seguro de que quiere salir de Kestrelgap?"},
    {"StatusBarIconActions", "No", "Non", "No"},
    {"StatusBarIconActions", "Yes", "Oui", "Sí"},
    {"UpdateDownloaderDialog", "Cancel", "Annuler", "Cancelar"},
    {"UpdateDownloaderDialog", "Download in progress...", "Téléchargement en cours...", "Descarga en curso..."},
    {"UpdateDownloaderDialog", "Error downloading update.",
        "Erreur de téléchargement de la mise à jour.",
        "Error al descargar la actualización."},
    {"UpdateDownloaderDialog", "Installing...", "Installation...", "Instalando..."},
    {"UpdateDownloaderDialog", "Update", "Mettre à jour", "Actualizar"},
    {"WinMenuBarIcon", "Close All Popup Windows",
        "Tout fermer les fenêtres popup",
        "Cerrar todas las ventanas emergentes de Windows"},
    {"WinMenuBarIcon", "Live Phone Notifications",
        "Notifications de téléphone direct",
        "Notificaciones de teléfono en vivo"},
    {"WinMenuBarIcon", "New Message...", "Nouveau message...", "Nuevo mensaje..."},
    {"WinMenuBarIcon", "Open Kestrelgap", "Ouvrir Kestrelgap", "Abrir Kestrelgap"},
    {"WinMenuBarIcon", "Phone Battery: %1%", "Batterie du téléphone : %1%", "Batería del teléfono: %1%"},
    {"WinMenuBarIcon", "Phone Dialer", "Numéroteur téléphonique", "Marcador de teléfono"},
    {"WinMenuBarIcon", "Preferences", "Préférences", "Preferencias"},
    {"WinMenuBarIcon", "Quit Kestrelgap", "Quitter Kestrelgap", "Dejar de Kestrelgap"},
};

bool inCatalogue(const QString& context, const QString& source)
{
    for (const CatalogueRow& row : catalogueRows) {
        if (context == QLatin1String(row.context) && source == QString::fromUtf8(row.source))
            return true;
    }
    return false;
}

// Every tr() text of the program's sources, by context, as lupdate finds it.
QList<QPair<QString, QString>> translatableTexts(QString* error)
{
    QList<QPair<QString, QString>> texts;
    QTemporaryDir dir;
    const QString tsPath = dir.filePath(QStringLiteral("scan.ts"));
    QProcess lupdate;
    lupdate.setProcessChannelMode(QProcess::MergedChannels);
    lupdate.start(QStringLiteral(LUPDATE_PATH),
        { QStringLiteral("-silent"), QStringLiteral("-locations"), QStringLiteral("none"),
            QStringLiteral(KESTRELGAP_SOURCE_DIR "/src"), QStringLiteral("-ts"), tsPath });
    if (!lupdate.waitForFinished(120000) || lupdate.exitCode() != 0) {
        *error = QStringLiteral("lupdate failed: ") + QString::fromLocal8Bit(lupdate.readAll());
        return texts;
    }
    QFile file(tsPath);
    if (!file.open(QIODevice::ReadOnly)) {
        *error = QStringLiteral("lupdate wrote no catalogue");
        return texts;
    }
    QXmlStreamReader xml(&file);
    QString context;
    while (!xml.atEnd()) {
        if (xml.readNext() != QXmlStreamReader::StartElement)
            continue;
        if (xml.name() == QLatin1String("name"))
            context = xml.readElementText();
        else if (xml.name() == QLatin1String("source"))
            texts.append({ context, xml.readElementText() });
    }
    if (xml.hasError())
        *error = xml.errorString();
    return texts;
}

} // namespace

class TestLanguageCatalogue : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void catalogue_data();
    void catalogue();
    void sourcesUseCatalogueTexts();

private:
    QTranslator mFrench;
    QTranslator mSpanish;
};

void TestLanguageCatalogue::initTestCase()
{
    kestrelgapInitResources();
    QVERIFY(mFrench.load(QStringLiteral(":/translations/kestrelgap_fr.qm")));
    QVERIFY(mSpanish.load(QStringLiteral(":/translations/kestrelgap_es.qm")));
}

void TestLanguageCatalogue::catalogue_data()
{
    QTest::addColumn<QByteArray>("context");
    QTest::addColumn<QByteArray>("source");
    QTest::addColumn<QString>("french");
    QTest::addColumn<QString>("spanish");
    for (const CatalogueRow& row : catalogueRows) {
        QTest::addRow("%s: %s", row.context, row.source)
            << QByteArray(row.context) << QByteArray(row.source) << QString::fromUtf8(row.french)
            << QString::fromUtf8(row.spanish);
    }
}

void TestLanguageCatalogue::catalogue()
{
    QFETCH(QByteArray, context);
    QFETCH(QByteArray, source);
    QFETCH(QString, french);
    QFETCH(QString, spanish);

    // An untranslated entry comes back empty, which is what makes tr() show the source text.
    QCOMPARE(mFrench.translate(context.constData(), source.constData()), french);
    QCOMPARE(mSpanish.translate(context.constData(), source.constData()), spanish);
}

// A tr() text of a catalogued class that differs from its entry by one character stays English in every
// language; only the sources show that.
void TestLanguageCatalogue::sourcesUseCatalogueTexts()
{
    QString error;
    const QList<QPair<QString, QString>> texts = translatableTexts(&error);
    QVERIFY2(error.isEmpty(), qPrintable(error));
    QVERIFY(!texts.isEmpty());

    QSet<QString> contexts;
    for (const CatalogueRow& row : catalogueRows)
        contexts.insert(QLatin1String(row.context));
    QStringList strays;
    for (const auto& text : texts) {
        if (contexts.contains(text.first) && !inCatalogue(text.first, text.second))
            strays << text.first + QStringLiteral(": \"") + text.second + QLatin1Char('"');
    }
    QVERIFY2(strays.isEmpty(), qPrintable(QStringLiteral("no catalogue entry for ") + strays.join(QStringLiteral(", "))));
}

QTEST_GUILESS_MAIN(TestLanguageCatalogue)
#include "tst_languagecatalogue.moc"
