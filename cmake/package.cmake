# What is installed, and the Debian package of it. scripts/package builds the package.
include(GNUInstallDirs)
# Modes do not depend on the umask of whoever builds.
set(CMAKE_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE
    GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
# The package needs the programs, not every test.
set(CMAKE_SKIP_INSTALL_ALL_DEPENDENCY ON)
set(doc_dir ${CMAKE_INSTALL_DATADIR}/doc/kestrune)

# install_compressed(FILE DESTINATION NAME): as NAME.gz, without name and time in it.
add_custom_target(documents ALL)
function(install_compressed file destination name)
    set(packed ${PROJECT_BINARY_DIR}/documents/${name}.gz)
    add_custom_command(OUTPUT ${packed} COMMAND gzip -9nc ${PROJECT_SOURCE_DIR}/${file} > ${packed}
                       DEPENDS ${PROJECT_SOURCE_DIR}/${file} VERBATIM)
    add_custom_target(document_${name} DEPENDS ${packed})
    add_dependencies(documents document_${name})
    install(FILES ${packed} DESTINATION ${destination})
endfunction()

file(MAKE_DIRECTORY ${PROJECT_BINARY_DIR}/documents)
install_compressed(packaging/man/Kestrune.8 ${CMAKE_INSTALL_MANDIR}/man8 Kestrune.8)
install_compressed(packaging/man/kestrunectl.1 ${CMAKE_INSTALL_MANDIR}/man1 kestrunectl.1)
install_compressed(packaging/man/kestrune.json.5 ${CMAKE_INSTALL_MANDIR}/man5 kestrune.json.5)
install_compressed(packaging/man/kestrune-log.7 ${CMAKE_INSTALL_MANDIR}/man7 kestrune-log.7)
install_compressed(packaging/debian/changelog ${doc_dir} changelog)
install_compressed(README.md ${doc_dir} README.md)

install(TARGETS Kestrune DESTINATION ${CMAKE_INSTALL_SBINDIR})
install(TARGETS kestrunectl DESTINATION ${CMAKE_INSTALL_BINDIR})
install(FILES packaging/systemd/kestrune@.service packaging/systemd/kestrune.target
        DESTINATION lib/systemd/system)
# One file completes both programs; it is looked up by the name of the program.
install(FILES packaging/completion/kestrunectl
        DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
install(FILES packaging/completion/kestrunectl RENAME Kestrune
        DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
install(FILES packaging/debian/copyright DESTINATION ${doc_dir})
install(FILES packaging/debian/lintian-overrides RENAME kestrune
        DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides)
install(DIRECTORY examples DESTINATION ${doc_dir}
        FILE_PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
install(DIRECTORY DESTINATION /etc/kestrune)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME kestrune)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_SET_DESTDIR ON)
set(CPACK_INSTALL_PREFIX /usr)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS ${CMAKE_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS})
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "Kestrune authors <authors@kestrune.invalid>")
set(CPACK_DEBIAN_PACKAGE_SECTION science)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SUGGESTS "bash-completion, systemd")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "virtual GNSS reference station near a real one")
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
"Kestrune takes the RTCM 3 stream of a GNSS reference station over TCP and
sends back, on the same connection, the observations of a virtual station
about 300 m to the north, epoch by epoch.
.
The package holds the service, one systemd unit for each station, and
kestrunectl, which simulates a station, looks into streams and checks
configurations.")
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA
    ${PROJECT_SOURCE_DIR}/packaging/debian/postinst
    ${PROJECT_SOURCE_DIR}/packaging/debian/prerm
    ${PROJECT_SOURCE_DIR}/packaging/debian/postrm)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION TRUE)
if(CMAKE_CROSSCOMPILING)
    set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE armhf)
endif()
include(CPack)
