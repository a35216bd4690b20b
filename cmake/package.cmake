# What is installed, and the Debian packages of it: kestrune, and kestrune-gateway beside it.
# scripts/package builds them.
include(GNUInstallDirs)
# Modes do not depend on the umask of whoever builds.
set(CMAKE_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE
    GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
# The package needs the programs, not every test.
set(CMAKE_SKIP_INSTALL_ALL_DEPENDENCY ON)
set(doc_dir ${CMAKE_INSTALL_DATADIR}/doc/kestrune)

# Each package is a component.
set(CMAKE_INSTALL_DEFAULT_COMPONENT_NAME kestrune)

# install_compressed(FILE DESTINATION NAME [COMPONENT]): as NAME.gz, without name and time in it.
add_custom_target(documents ALL)
function(install_compressed file destination name)
    set(packed ${PROJECT_BINARY_DIR}/documents/${name}.gz)
    add_custom_command(OUTPUT ${packed} COMMAND gzip -9nc ${PROJECT_SOURCE_DIR}/${file} > ${packed}
                       DEPENDS ${PROJECT_SOURCE_DIR}/${file} VERBATIM)
    if(NOT TARGET document_${name}) # both packages have the changelog
        add_custom_target(document_${name} DEPENDS ${packed})
        add_dependencies(documents document_${name})
    endif()
    install(FILES ${packed} DESTINATION ${destination} ${ARGN})
endfunction()

file(MAKE_DIRECTORY ${PROJECT_BINARY_DIR}/documents)
install_compressed(packaging/man/Kestrune.8 ${CMAKE_INSTALL_MANDIR}/man8 Kestrune.8)
install_compressed(packaging/man/kestrunectl.1 ${CMAKE_INSTALL_MANDIR}/man1 kestrunectl.1)
install_compressed(packaging/man/kestrune.json.5 ${CMAKE_INSTALL_MANDIR}/man5 kestrune.json.5)
install_compressed(packaging/man/kestrune-log.7 ${CMAKE_INSTALL_MANDIR}/man7 kestrune-log.7)
install_compressed(packaging/debian/changelog ${doc_dir} changelog)
install_compressed(README.md ${doc_dir} README.md)
install_compressed(docs/service.md ${doc_dir} service.md)

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
        FILE_PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ
        PATTERN gateway EXCLUDE)
install(DIRECTORY DESTINATION /etc/kestrune)

if(KESTRUNE_GATEWAY)
    set(gateway_doc_dir ${CMAKE_INSTALL_DATADIR}/doc/kestrune-gateway)
    set(of_gateway COMPONENT gateway)
    install(TARGETS kestrune-gateway DESTINATION ${CMAKE_INSTALL_SBINDIR} ${of_gateway})
    install_compressed(packaging/man/kestrune-gateway.8 ${CMAKE_INSTALL_MANDIR}/man8
                       kestrune-gateway.8 ${of_gateway})
    install_compressed(packaging/man/kestrune-gateway.toml.5 ${CMAKE_INSTALL_MANDIR}/man5
                       kestrune-gateway.toml.5 ${of_gateway})
    install_compressed(packaging/debian/changelog ${gateway_doc_dir} changelog ${of_gateway})
    install(FILES packaging/systemd/kestrune-gateway.service DESTINATION lib/systemd/system
            ${of_gateway})
    install(FILES packaging/completion/kestrune-gateway
            DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions ${of_gateway})
    install(FILES packaging/debian/copyright DESTINATION ${gateway_doc_dir} ${of_gateway})
    install(FILES gateway/web/openapi.json DESTINATION ${gateway_doc_dir} ${of_gateway})
    install(DIRECTORY examples/gateway/ DESTINATION ${gateway_doc_dir}/examples ${of_gateway}
            FILE_PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME kestrune)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_COMPONENTS_ALL kestrune)
set(CPACK_DEBIAN_KESTRUNE_PACKAGE_NAME kestrune)
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
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "") # each description begins with its own
set(CPACK_DEBIAN_KESTRUNE_DESCRIPTION
"virtual GNSS reference station near a real one
Kestrune takes the RTCM 3 stream of a GNSS reference station over TCP and
sends back, on the same connection, the observations of a virtual station
about 300 m to the north, epoch by epoch.
.
The package holds the service, one systemd unit for each station, and
kestrunectl, which simulates a station, looks into streams and checks
configurations.")
set(CPACK_DEBIAN_KESTRUNE_PACKAGE_CONTROL_EXTRA
    ${PROJECT_SOURCE_DIR}/packaging/debian/postinst
    ${PROJECT_SOURCE_DIR}/packaging/debian/prerm
    ${PROJECT_SOURCE_DIR}/packaging/debian/postrm)
set(CPACK_DEBIAN_KESTRUNE_PACKAGE_CONTROL_STRICT_PERMISSION TRUE)

if(KESTRUNE_GATEWAY)
    list(APPEND CPACK_COMPONENTS_ALL gateway)
    set(CPACK_DEBIAN_GATEWAY_PACKAGE_NAME kestrune-gateway)
    set(CPACK_DEBIAN_GATEWAY_PACKAGE_DEPENDS "kestrune (= ${PROJECT_VERSION}), adduser")
    if(CMAKE_CROSSCOMPILING)
        # OpenSSL for the other processor is not installed here, so its package cannot be asked.
        # .ci/check-package holds them against those that are found for amd64.
        set(CPACK_DEBIAN_GATEWAY_PACKAGE_SHLIBDEPS OFF)
        string(APPEND CPACK_DEBIAN_GATEWAY_PACKAGE_DEPENDS ", libc6 (>= 2.35), libcjson1 (>= 1.7.13), \
libcrypt1 (>= 1:4.3.0), libgcc-s1 (>= 4.0), libssl3 (>= 3.0.0), libstdc++6 (>= 11)")
    endif()
    set(CPACK_DEBIAN_GATEWAY_DESCRIPTION
"gateway from GNSS receivers and casters to rovers
kestrune-gateway fetches the RTCM 3 streams of reference stations where they
are (NTRIP casters, receivers, serial ports, recordings), has each answered by
a Kestrune of its own, and serves the virtual stations to rovers as an NTRIP
caster, with and without TLS.
.
The package holds the gateway and its systemd unit.")
    set(CPACK_DEBIAN_GATEWAY_PACKAGE_CONTROL_EXTRA
        ${PROJECT_SOURCE_DIR}/packaging/debian/gateway/postinst
        ${PROJECT_SOURCE_DIR}/packaging/debian/gateway/prerm
        ${PROJECT_SOURCE_DIR}/packaging/debian/gateway/postrm)
    set(CPACK_DEBIAN_GATEWAY_PACKAGE_CONTROL_STRICT_PERMISSION TRUE)
endif()
if(CMAKE_CROSSCOMPILING)
    set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE armhf)
endif()
include(CPack)
