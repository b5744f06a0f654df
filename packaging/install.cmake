# Installation and the Debian package. The program folder is the staged one (executable, html/,
# kestrelgap.iconset/, install_update.sh), under the prefix's lib folder, because the program
# resolves its pages and icons against its working directory; the launcher starts it there.
set(KESTRELGAP_INSTALL_DIR "lib/kestrelgap")

install(TARGETS kestrelgap RUNTIME DESTINATION "${KESTRELGAP_INSTALL_DIR}")
install(DIRECTORY "${KESTRELGAP_STAGE_DIR}/" DESTINATION "${KESTRELGAP_INSTALL_DIR}" USE_SOURCE_PERMISSIONS
    PATTERN "kestrelgap" EXCLUDE)
# The update hand-over script, also when the build hasn't staged it.
install(PROGRAMS "${PROJECT_SOURCE_DIR}/resources/scripts/install_update.sh" DESTINATION "${KESTRELGAP_INSTALL_DIR}")

# The launcher and the command name the program folder under the prefix in force at install time,
# which for a package is the packaging prefix, not the one configured.
install(CODE "
    set(KESTRELGAP_PROGRAM_DIR \"\${CMAKE_INSTALL_PREFIX}/${KESTRELGAP_INSTALL_DIR}\")
    configure_file(\"${PROJECT_SOURCE_DIR}/packaging/kestrelgap.desktop.in\"
        \"${PROJECT_BINARY_DIR}/packaging/kestrelgap.desktop\" @ONLY)
    configure_file(\"${PROJECT_SOURCE_DIR}/packaging/kestrelgap.sh.in\"
        \"${PROJECT_BINARY_DIR}/packaging/kestrelgap\" @ONLY)
")
install(FILES "${PROJECT_BINARY_DIR}/packaging/kestrelgap.desktop" DESTINATION share/applications)
install(PROGRAMS "${PROJECT_BINARY_DIR}/packaging/kestrelgap" DESTINATION bin)
foreach(size 16 22 24 32 48 64 128 256 512)
    install(FILES "${PROJECT_SOURCE_DIR}/kestrelgap.iconset/icon_${size}x${size}.png"
        DESTINATION share/icons/hicolor/${size}x${size}/apps RENAME kestrelgap.png)
endforeach()
install(FILES "${PROJECT_SOURCE_DIR}/kestrelgap.iconset/icon_scalable.svg"
    DESTINATION share/icons/hicolor/scalable/apps RENAME kestrelgap.svg)

set(CPACK_PACKAGE_NAME "kestrelgap")
set(CPACK_PACKAGE_VENDOR "Kestrelgap")
set(CPACK_PACKAGE_CONTACT "Kestrelgap desktop team <desktop@kestrelgap.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Read and send your phone's text messages from your computer")
set(CPACK_PACKAGE_DESCRIPTION "Kestrelgap lives in the tray and brings your phone's texts to the desktop:\n\
quick-reply popups, notifications with sound, the phone's battery in the tray menu,\n\
downloads of shared media, start at log-in and automatic updates.")
set(CPACK_PACKAGING_INSTALL_PREFIX "/usr")
set(CPACK_GENERATOR "DEB")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION "net")
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_STRIP_FILES ON)
# Loaded at run time, so the library scan can't see them: sounds, translations, the tray's icons;
# xdg-open for Open, Show in Folder and Open Log.
set(CPACK_DEBIAN_PACKAGE_DEPENDS
    "libqt5multimedia5-plugins, gstreamer1.0-plugins-base, qttranslations5-l10n, libqt5svg5, xdg-utils")
include(CPack)
