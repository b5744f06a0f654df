<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="es" sourcelanguage="en">
<context>
    <name>AboutDialog</name>
    <message>
        <source>About</source>
        <translation>Acerca de</translation>
    </message>
    <message>
        <source>Check for updates</source>
        <translation>Comprobar si hay actualizaciones</translation>
    </message>
    <message>
        <source>Version </source>
        <translation>Versión </translation>
    </message>
    <message>
        <source>version</source>
        <translation>versión</translation>
    </message>
</context>
<context>
    <name>ConfirmDownloadUpdate</name>
    <message>
        <source>I&apos;ll do this later</source>
        <translation>Haré esto más adelante</translation>
    </message>
    <message>
        <source>New Version</source>
        <translation>Nueva versión</translation>
    </message>
    <message>
        <source>Yes</source>
        <translation>Sí</translation>
    </message>
</context>
<context>
    <name>CookieModel</name>
    <message>
        <source>Contents</source>
        <translation>Contenido</translation>
    </message>
    <message>
        <source>Expires</source>
        <translation>Expira</translation>
    </message>
    <message>
        <source>Name</source>
        <translation>Nombre</translation>
    </message>
    <message>
        <source>Path</source>
        <translation>Ruta</translation>
    </message>
    <message>
        <source>Secure</source>
        <translation>Seguro</translation>
    </message>
    <message>
        <source>Website</source>
        <translation>Sitio web</translation>
    </message>
</context>
<context>
    <name>FreedesktopNotifier</name>
    <message>
        <source>Open</source>
        <translation>Abrir</translation>
    </message>
    <message>
        <source>Reply</source>
        <translation>Responder</translation>
    </message>
</context>
<context>
    <name>IndexWindow</name>
    <message>
        <source>Close</source>
        <translation>Cerrar</translation>
    </message>
    <message>
        <source>DOWNLOADED</source>
        <translation>DESCARGADO</translation>
    </message>
</context>
<context>
    <name>LatestInstalledDialog</name>
    <message>
        <source>You are running the latest version of Kestrelgap!</source>
        <translation>¡Está ejecutando la última versión de Kestrelgap!</translation>
    </message>
</context>
<context>
    <name>MainWindow</name>
    <message>
        <source>About</source>
        <translation>Acerca de</translation>
    </message>
    <message>
        <source>Actual Size</source>
        <translation>Tamaño real</translation>
    </message>
    <message>
        <source>Close</source>
        <translation>Cerrar</translation>
    </message>
    <message>
        <source>Minimize</source>
        <translation>Minimizar</translation>
    </message>
    <message>
        <source>New Message...</source>
        <translation>Nuevo mensaje...</translation>
    </message>
    <message>
        <source>Open Kestrelgap</source>
        <translation>Abrir Kestrelgap </translation>
    </message>
    <message>
        <source>Preferences</source>
        <translation>Preferencias</translation>
    </message>
    <message>
        <source>Quit</source>
        <translation>Dejar</translation>
    </message>
    <message>
        <source>Shortcuts</source>
        <translation>Accesos directos</translation>
    </message>
    <message>
        <source>Sign Out</source>
        <translation>Desconectar</translation>
    </message>
    <message>
        <source>Zoom In</source>
        <translation>Aumentar el zoom</translation>
    </message>
    <message>
        <source>Zoom Out</source>
        <translation>Disminuir el zoom</translation>
    </message>
</context>
<context>
    <name>MediaDownloaderDialog</name>
    <message>
        <source>Cancel</source>
        <translation>Cancelar</translation>
    </message>
    <message>
        <source>Download Complete</source>
        <translation>Descarga completa</translation>
    </message>
    <message>
        <source>Download in progress...</source>
        <translation>Descarga en curso...</translation>
    </message>
    <message>
        <source>Error downloading update.</source>
        <translation>Error al descargar la actualización.</translation>
    </message>
    <message>
        <source>Kestrelgap</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Open</source>
        <translation>Abrir</translation>
    </message>
    <message>
        <source>Show in Finder</source>
        <translation>Mostrar en la carpeta</translation>
    </message>
    <message>
        <source>Show in Folder</source>
        <translation>Mostrar en la carpeta</translation>
    </message>
</context>
<context>
    <name>Notificator</name>
    <message>
        <source> image from location &quot;file://%1&quot;</source>
        <translation>imagen de la ubicación &quot;file://%1&quot;</translation>
    </message>
</context>
<context>
    <name>QMessageBox</name>
    <message>
        <source>A debug version of the app is already running.</source>
        <translation>Ya se está ejecutando una versión de depuración de la aplicación.</translation>
    </message>
</context>
<context>
    <name>SettingsDialog</name>
    <message>
        <source>Choose...</source>
        <translation>Escoger...</translation>
    </message>
    <message>
        <source>Debug</source>
        <translation>Depurar</translation>
    </message>
    <message>
        <source>Debug code:</source>
        <translation>Código de depuración:</translation>
    </message>
    <message>
        <source>Default</source>
        <translation>Default</translation>
    </message>
    <message>
        <source>Default Download Location</source>
        <translation>Ubicación de descarga por defecto</translation>
    </message>
    <message>
        <source>Display Language</source>
        <translation>Idioma de la pantalla</translation>
    </message>
    <message>
        <source>Display both the name of the sender and the message</source>
        <translation>Mostrar el nombre del remitente y el mensaje</translation>
    </message>
    <message>
        <source>Do not show notifications</source>
        <translation>No mostrar notificaciones</translation>
    </message>
    <message>
        <source>Don&apos;t show main app window when Kestrelgap launches</source>
        <translation>No mostrar la ventana principal de la aplicación cuando se inicia Kestrelgap</translation>
    </message>
    <message>
        <source>Enable Logging</source>
        <translation>Habilitar el registro</translation>
    </message>
    <message>
        <source>Launch Kestrelgap when my computer starts</source>
        <translation>Iniciar Kestrelgap cuando se inicie el ordenador</translation>
    </message>
    <message>
        <source>Launch Settings</source>
        <translation>Iniciar Ajustes</translation>
    </message>
    <message>
        <source>Make sure to turn Kestrelgap notifications on in System Preferences &gt; Notifications &gt; Play sound for notifications</source>
        <translation>Asegúrese de activar las notificaciones Kestrelgap en Preferencias del sistema&gt; Notificaciones&gt; Reproducir sonido para las notificaciones</translation>
    </message>
    <message>
        <source>Message Notifications Privacy</source>
        <translation>Mensaje de Notificaciones de Privacidad</translation>
    </message>
    <message>
        <source>No log file found.</source>
        <translation>No se encontró archivo de registro.</translation>
    </message>
    <message>
        <source>Notification Sound:</source>
        <translation>Sonido de notificación</translation>
    </message>
    <message>
        <source>Notifications</source>
        <translation>Notificaciones</translation>
    </message>
    <message>
        <source>Notify me on my computer when my phone battery is fully charged</source>
        <translation>Notificarme en mi equipo cuando la batería de mi teléfono esté completamente cargada</translation>
    </message>
    <message>
        <source>Notify me on my computer when my phone battery is low</source>
        <translation>Notificarme en mi equipo cuando la batería de mi teléfono esté baja</translation>
    </message>
    <message>
        <source>Only display the name of the sender</source>
        <translation>Sólo mostrar el nombre del remitente</translation>
    </message>
    <message>
        <source>Open Log</source>
        <translation>Abrir registro</translation>
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
        <translation>Reproducir sonido para las notificaciones</translation>
    </message>
    <message>
        <source>Preferences</source>
        <translation>Preferencias</translation>
    </message>
    <message>
        <source>Preview</source>
        <translation>Avance</translation>
    </message>
    <message>
        <source>Set Language</source>
        <translation>Elegir Lenguaje</translation>
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
        <translation>Usar notificaciones del centro de notificación de Mac</translation>
    </message>
    <message>
        <source>Use Quick Reply notifications</source>
        <translation>Utilizar las notificaciones de respuesta rápida</translation>
    </message>
    <message>
        <source>Use desktop notifications</source>
        <translation>Usar las notificaciones del escritorio</translation>
    </message>
    <message>
        <source>Yeah</source>
        <translation>Yeah</translation>
    </message>
    <message>
        <source>Your desktop plays the sound of its notifications.
Change it in the desktop&apos;s notification settings.</source>
        <translation>Su escritorio reproduce el sonido de sus notificaciones.
Cámbielo en la configuración de notificaciones del escritorio.</translation>
    </message>
</context>
<context>
    <name>StatusBarIconActions</name>
    <message>
        <source>Are you sure you want to quit Kestrelgap?</source>
        <translation>¿Está seguro de que quiere salir de Kestrelgap?</translation>
    </message>
    <message>
        <source>No</source>
        <translation>No</translation>
    </message>
    <message>
        <source>Yes</source>
        <translation>Sí</translation>
    </message>
</context>
<context>
    <name>UpdateDownloaderDialog</name>
    <message>
        <source>Cancel</source>
        <translation>Cancelar</translation>
    </message>
    <message>
        <source>Download in progress...</source>
        <translation>Descarga en curso...</translation>
    </message>
    <message>
        <source>Error downloading update.</source>
        <translation>Error al descargar la actualización.</translation>
    </message>
    <message>
        <source>Installing...</source>
        <translation>Instalando...</translation>
    </message>
    <message>
        <source>Update</source>
        <translation>Actualizar</translation>
    </message>
</context>
<context>
    <name>UpdateHandOver</name>
    <message>
        <source>The update was not downloaded completely.</source>
        <translation>La actualización no se descargó por completo.</translation>
    </message>
    <message>
        <source>The update is a Debian package, and this system has no package installer that can be asked from here. Install %1 with your package manager.</source>
        <translation>La actualización es un paquete Debian, y este sistema no tiene un instalador de paquetes al que se pueda pedir desde aquí. Instale %1 con su gestor de paquetes.</translation>
    </message>
    <message>
        <source>Kestrelgap was installed by your system&apos;s package manager, and this update can&apos;t replace it. Update Kestrelgap with your package manager.</source>
        <translation>Kestrelgap se instaló con el gestor de paquetes del sistema, y esta actualización no puede sustituirlo. Actualice Kestrelgap con su gestor de paquetes.</translation>
    </message>
    <message>
        <source>The downloaded update is no program this system can run.</source>
        <translation>La actualización descargada no es un programa que este sistema pueda ejecutar.</translation>
    </message>
    <message>
        <source>The update could not be installed. Kestrelgap goes on running in its current version.</source>
        <translation>No se pudo instalar la actualización. Kestrelgap sigue funcionando en su versión actual.</translation>
    </message>
</context>
<context>
    <name>WinMenuBarIcon</name>
    <message>
        <source>Close All Popup Windows</source>
        <translation>Cerrar todas las ventanas emergentes de Windows</translation>
    </message>
    <message>
        <source>Live Phone Notifications</source>
        <translation>Notificaciones de teléfono en vivo</translation>
    </message>
    <message>
        <source>New Message...</source>
        <translation>Nuevo mensaje...</translation>
    </message>
    <message>
        <source>Open Kestrelgap</source>
        <translation>Abrir Kestrelgap</translation>
    </message>
    <message>
        <source>Phone Battery: %1%</source>
        <translation>Batería del teléfono: %1%</translation>
    </message>
    <message>
        <source>Phone Dialer</source>
        <translation>Marcador de teléfono</translation>
    </message>
    <message>
        <source>Preferences</source>
        <translation>Preferencias</translation>
    </message>
    <message>
        <source>Quit Kestrelgap</source>
        <translation>Dejar de Kestrelgap</translation>
    </message>
</context>
</TS>
