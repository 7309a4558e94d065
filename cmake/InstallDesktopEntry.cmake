# Run while installing. The desktop entry names the executable by its whole path: the prefix, which is known only now,
# need not be on anybody's PATH.
set(name com.kelvadrome.mac.desktop)
set(folder "${CMAKE_INSTALL_PREFIX}/share/applications")
set(executable "${CMAKE_INSTALL_PREFIX}/bin/kelvadrome")
file(READ "${CMAKE_CURRENT_LIST_DIR}/../packaging/${name}" entry)
string(REPLACE "TryExec=kelvadrome\n" "TryExec=${executable}\n" entry "${entry}")
string(REPLACE "\nExec=kelvadrome " "\nExec=\"${executable}\" " entry "${entry}")
file(WRITE "$ENV{DESTDIR}${folder}/${name}" "${entry}")
message(STATUS "Installing: $ENV{DESTDIR}${folder}/${name}")
