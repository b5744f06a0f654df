<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="fr" sourcelanguage="en">
<context>
    <name>AboutDialog</name>
    <message>
        <source>About</source>
        <translation>À propos</translation>
    </message>
    <message>
        <source>Check for updates</source>
        <translation>Rechercher des mises à jour</translation>
    </message>
    <message>
        <source>Version </source>
        <translation>Version </translation>
    </message>
    <message>
        <source>version</source>
        <translation>version</translation>
    </message>
</context>
<context>
    <name>ConfirmDownloadUpdate</name>
    <message>
        <source>I&apos;ll do this later</source>
        <translation>Je le ferai plus tard</translation>
    </message>
    <message>
        <source>New Version</source>
        <translation>Nouvelle version</translation>
    </message>
    <message>
        <source>Yes</source>
        <translation>Oui</translation>
    </message>
</context>
<context>
    <name>CookieModel</name>
    <message>
        <source>Contents</source>
        <translation>Contenus</translation>
    </message>
    <message>
        <source>Expires</source>
        <translation>Expire</translation>
    </message>
    <message>
        <source>Name</source>
        <translation>Prénom</translation>
    </message>
    <message>
        <source>Path</source>
        <translation>Chemin</translation>
    </message>
    <message>
        <source>Secure</source>
        <translation>Chemin</translation>
    </message>
    <message>
        <source>Website</source>
        <translation>Site Web</translation>
    </message>
</context>
<context>
    <name>FreedesktopNotifier</name>
    <message>
        <source>Open</source>
        <translation>Ouvrir</translation>
    </message>
    <message>
        <source>Reply</source>
        <translation>Répondre</translation>
    </message>
</context>
<context>
    <name>IndexWindow</name>
    <message>
        <source>Close</source>
        <translation>Fermer</translation>
    </message>
    <message>
        <source>DOWNLOADED</source>
        <translation>TÉLÉCHARGÉ</translation>
    </message>
</context>
<context>
    <name>LatestInstalledDialog</name>
    <message>
        <source>You are running the latest version of Kestrelgap!</source>
        <translation>Vous utilisez la dernière version de Kestrelgap!</translation>
    </message>
</context>
<context>
    <name>MainWindow</name>
    <message>
        <source>About</source>
        <translation>À propos</translation>
    </message>
    <message>
        <source>Actual Size</source>
        <translation>Taille actuelle</translation>
    </message>
    <message>
        <source>Close</source>
        <translation>Fermer</translation>
    </message>
    <message>
        <source>Minimize</source>
        <translation>Minimiser</translation>
    </message>
    <message>
        <source>New Message...</source>
        <translation>Nouveau message...</translation>
    </message>
    <message>
        <source>Open Kestrelgap</source>
        <translation>Ouvrir Kestrelgap</translation>
    </message>
    <message>
        <source>Preferences</source>
        <translation>Préférences</translation>
    </message>
    <message>
        <source>Quit</source>
        <translation>Quitter</translation>
    </message>
    <message>
        <source>Shortcuts</source>
        <translation>Raccourcis</translation>
    </message>
    <message>
        <source>Sign Out</source>
        <translation>Se déconnecter</translation>
    </message>
    <message>
        <source>Zoom In</source>
        <translation>Agrandir</translation>
    </message>
    <message>
        <source>Zoom Out</source>
        <translation>Dézoomer</translation>
    </message>
</context>
<context>
    <name>MediaDownloaderDialog</name>
    <message>
        <source>Cancel</source>
        <translation>Annuler</translation>
    </message>
    <message>
        <source>Download Complete</source>
        <translation>Téléchargement complet</translation>
    </message>
    <message>
        <source>Download in progress...</source>
        <translation>Téléchargement en cours...</translation>
    </message>
    <message>
        <source>Error downloading update.</source>
        <translation>Erreur de téléchargement de la mise à jour.</translation>
    </message>
    <message>
        <source>Kestrelgap</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Open</source>
        <translation>Ouvrir</translation>
    </message>
    <message>
        <source>Show in Finder</source>
        <translation>Afficher dans le dossier</translation>
    </message>
    <message>
        <source>Show in Folder</source>
        <translation>Afficher dans le dossier</translation>
    </message>
</context>
<context>
    <name>Notificator</name>
    <message>
        <source> image from location &quot;file://%1&quot;</source>
        <translation>image de l&apos;emplacement &quot;file://%1&quot;</translation>
    </message>
</context>
<context>
    <name>QMessageBox</name>
    <message>
        <source>A debug version of the app is already running.</source>
        <translation>Une version de débogage de l&apos;application est déjà en cours d&apos;exécution.</translation>
    </message>
</context>
<context>
    <name>SettingsDialog</name>
    <message>
        <source>Choose...</source>
        <translation>Choisissez...</translation>
    </message>
    <message>
        <source>Debug</source>
        <translation>Débogage</translation>
    </message>
    <message>
        <source>Debug code:</source>
        <translation>Code de débogage :</translation>
    </message>
    <message>
        <source>Default</source>
        <translation>Default</translation>
    </message>
    <message>
        <source>Default Download Location</source>
        <translation> Emplacement de téléchargement par défaut</translation>
    </message>
    <message>
        <source>Display Language</source>
        <translation>Langue d&apos;affichage</translation>
    </message>
    <message>
        <source>Display both the name of the sender and the message</source>
        <translation>Afficher le nom de l&apos;expéditeur et le message</translation>
    </message>
    <message>
        <source>Do not show notifications</source>
        <translation>Ne pas afficher les notifications</translation>
    </message>
    <message>
        <source>Don&apos;t show main app window when Kestrelgap launches</source>
        <translation>Ne pas afficher la fenêtre de l&apos;application principale lorsque Kestrelgap démarre</translation>
    </message>
    <message>
        <source>Enable Logging</source>
        <translation>Activer la journalisation</translation>
    </message>
    <message>
        <source>Launch Kestrelgap when my computer starts</source>
        <translation>Démarrer Kestrelgap lorsque mon ordinateur démarre</translation>
    </message>
    <message>
        <source>Launch Settings</source>
        <translation>Paramètres de démarrage</translation>
    </message>
    <message>
        <source>Make sure to turn Kestrelgap notifications on in System Preferences &gt; Notifications &gt; Play sound for notifications</source>
        <translation>Assurez-vous de désactiver les notifications Kestrelgap dans Préférences Système&gt; Notifications&gt; Lire le son pour les notifications</translation>
    </message>
    <message>
        <source>Message Notifications Privacy</source>
        <translation>Message de notifications de confidentialité</translation>
    </message>
    <message>
        <source>No log file found.</source>
        <translation>Aucun fichier journal trouvé.</translation>
    </message>
    <message>
        <source>Notification Sound:</source>
        <translation>Son de notification</translation>
    </message>
    <message>
        <source>Notifications</source>
        <translation>Notifications</translation>
    </message>
    <message>
        <source>Notify me on my computer when my phone battery is fully charged</source>
        <translation>Me notifier sur mon ordinateur lorsque la batterie de mon téléphone est complètement chargée</translation>
    </message>
    <message>
        <source>Notify me on my computer when my phone battery is low</source>
        <translation>Me notifier sur mon ordinateur lorsque la batterie de mon téléphone est faible</translation>
    </message>
    <message>
        <source>Only display the name of the sender</source>
        <translation>Seulement afficher le nom de l&apos;expéditeur</translation>
    </message>
    <message>
        <source>Open Log</source>
        <translation>Ouvrir le journal</translation>
    </message>
    <message>
        <source>Pillsbury</source>
        <translation>Pillsbury</translation>
    </message>
    <message>
        <source>Ping</source>
        <translation>Ping</translation>
    </message>
    <message>
        <source>Play sound for notifications</source>
        <translation>Lire le son pour les notifications</translation>
    </message>
    <message>
        <source>Preferences</source>
        <translation>Préférences</translation>
    </message>
    <message>
        <source>Preview</source>
        <translation>Aperçu</translation>
    </message>
    <message>
        <source>Set Language</source>
        <translation>Définir la Langue</translation>
    </message>
    <message>
        <source>Spring</source>
        <translation>Spring</translation>
    </message>
    <message>
        <source>Tink</source>
        <translation>Tink</translation>
    </message>
    <message>
        <source>Use Mac Notification Center notifications</source>
        <translation>Utiliser les notifications du centre de notification de Mac </translation>
    </message>
    <message>
        <source>Use Quick Reply notifications</source>
        <translation>Utiliser les notifications de réponse rapide</translation>
    </message>
    <message>
        <source>Use desktop notifications</source>
        <translation>Utiliser les notifications du bureau</translation>
    </message>
    <message>
        <source>Yeah</source>
        <translation>Yeah</translation>
    </message>
    <message>
        <source>Your desktop plays the sound of its notifications.
Change it in the desktop&apos;s notification settings.</source>
        <translation>Votre bureau joue le son de ses notifications.
Modifiez-le dans les paramètres de notification du bureau.</translation>
    </message>
</context>
<context>
    <name>StatusBarIconActions</name>
    <message>
        <source>Are you sure you want to quit Kestrelgap?</source>
        <translation>Êtes-vous sûr de vouloir quitter Kestrelgap?</translation>
    </message>
    <message>
        <source>No</source>
        <translation>Non</translation>
    </message>
    <message>
        <source>Yes</source>
        <translation>Oui</translation>
    </message>
</context>
<context>
    <name>UpdateDownloaderDialog</name>
    <message>
        <source>Cancel</source>
        <translation>Annuler</translation>
    </message>
    <message>
        <source>Download in progress...</source>
        <translation>Téléchargement en cours...</translation>
    </message>
    <message>
        <source>Error downloading update.</source>
        <translation>Erreur de téléchargement de la mise à jour.</translation>
    </message>
    <message>
        <source>Installing...</source>
        <translation>Installation...</translation>
    </message>
    <message>
        <source>Update</source>
        <translation>Mettre à jour</translation>
    </message>
</context>
<context>
    <name>UpdateHandOver</name>
    <message>
        <source>The update was not downloaded completely.</source>
        <translation>La mise à jour n&apos;a pas été téléchargée entièrement.</translation>
    </message>
    <message>
        <source>The update is a Debian package, and this system has no package installer that can be asked from here. Install %1 with your package manager.</source>
        <translation>La mise à jour est un paquet Debian, et ce système n&apos;a pas d&apos;installateur de paquets accessible d&apos;ici. Installez %1 avec votre gestionnaire de paquets.</translation>
    </message>
    <message>
        <source>Kestrelgap was installed by your system&apos;s package manager, and this update can&apos;t replace it. Update Kestrelgap with your package manager.</source>
        <translation>Kestrelgap a été installé par le gestionnaire de paquets de votre système, et cette mise à jour ne peut pas le remplacer. Mettez Kestrelgap à jour avec votre gestionnaire de paquets.</translation>
    </message>
    <message>
        <source>The downloaded update is no program this system can run.</source>
        <translation>La mise à jour téléchargée n&apos;est pas un programme que ce système peut exécuter.</translation>
    </message>
    <message>
        <source>The update could not be installed. Kestrelgap goes on running in its current version.</source>
        <translation>La mise à jour n&apos;a pas pu être installée. Kestrelgap continue de fonctionner dans sa version actuelle.</translation>
    </message>
</context>
<context>
    <name>WinMenuBarIcon</name>
    <message>
        <source>Close All Popup Windows</source>
        <translation>Tout fermer les fenêtres popup</translation>
    </message>
    <message>
        <source>Live Phone Notifications</source>
        <translation>Notifications de téléphone direct</translation>
    </message>
    <message>
        <source>New Message...</source>
        <translation>Nouveau message...</translation>
    </message>
    <message>
        <source>Open Kestrelgap</source>
        <translation>Ouvrir Kestrelgap</translation>
    </message>
    <message>
        <source>Phone Battery: %1%</source>
        <translation>Batterie du téléphone : %1%</translation>
    </message>
    <message>
        <source>Phone Dialer</source>
        <translation>Numéroteur téléphonique</translation>
    </message>
    <message>
        <source>Preferences</source>
        <translation>Préférences</translation>
    </message>
    <message>
        <source>Quit Kestrelgap</source>
        <translation>Quitter Kestrelgap</translation>
    </message>
</context>
</TS>
