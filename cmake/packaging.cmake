# Installation on a bench PC, the Debian package (`cpack -G DEB`), and the test of both. Android's
# build installs kelp on a device.
if(ANDROID)
    return()
endif()

include(GNUInstallDirs)
include(cmake/manualpage.cmake)
set(kelp_data_dir ${CMAKE_INSTALL_DATADIR}/kelp)
set(kelp_unit_dir lib/systemd/system)

# compressed(FILE DESTINATION [NAME]): installs FILE compressed, as Debian requires for manual pages
# and change logs.
find_program(KELP_GZIP gzip REQUIRED)
mark_as_advanced(KELP_GZIP)
function(compressed file destination)
    cmake_path(ABSOLUTE_PATH file)
    cmake_path(GET file FILENAME name)
    if(ARGC GREATER 2)
        set(name ${ARGV2})
    endif()
    set(result ${PROJECT_BINARY_DIR}/${name}.gz)
    # -n: no name, no time, so the result is reproducible.
    add_custom_command(OUTPUT ${result} DEPENDS ${file}
        COMMAND sh -c "${KELP_GZIP} -9nc '${file}' >'${result}'" VERBATIM)
    string(MAKE_C_IDENTIFIER kelp_${name} target)
    add_custom_target(${target} ALL DEPENDS ${result})
    install(FILES ${result} DESTINATION ${destination})
endfunction()

# The maintainer: $DEBFULLNAME and $DEBEMAIL, else the author of the last commit. The last resort,
# outside a git checkout, is an address that lintian rejects.
execute_process(COMMAND git log -1 "--format=%cn <%ce>;%cD" WORKING_DIRECTORY ${PROJECT_SOURCE_DIR}
    OUTPUT_VARIABLE version_made OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
string(TIMESTAMP now "%a, %d %b %Y %H:%M:%S +0000" UTC)
list(APPEND version_made "kelp <root@localhost>" ${now})
list(GET version_made 0 CPACK_PACKAGE_CONTACT)
list(GET version_made 1 kelp_version_date)
if(DEFINED ENV{DEBEMAIL})
    set(CPACK_PACKAGE_CONTACT "$ENV{DEBFULLNAME} <$ENV{DEBEMAIL}>")
endif()
configure_file(cmake/changelog.Debian.in ${PROJECT_BINARY_DIR}/changelog.Debian @ONLY)

install(TARGETS kelp DESTINATION ${CMAKE_INSTALL_SBINDIR})
compressed(docs/man/kelp.8 ${CMAKE_INSTALL_MANDIR}/man8)
compressed(docs/man/kelp.json.5 ${CMAKE_INSTALL_MANDIR}/man5)
foreach(tool ${KELP_TOOLS})
    install(TARGETS ${tool} DESTINATION ${CMAKE_INSTALL_BINDIR})
    kelp_manual_page(page ${tool})
    if(page)
        compressed(${page} ${CMAKE_INSTALL_MANDIR}/man1)
    endif()
endforeach()

# The service's initial configuration, and the schema for editors.
install(FILES examples/kelp.json examples/kelp.schema.json DESTINATION ${kelp_data_dir})
install(FILES examples/bench-peers.json DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples)
install(DIRECTORY examples/labgrid DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples
    PATTERN "__pycache__" EXCLUDE)
install(FILES docs/bench.md docs/protocol.md DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(FILES NOTICE DESTINATION ${CMAKE_INSTALL_DOCDIR} RENAME copyright)
compressed(CHANGELOG.md ${CMAKE_INSTALL_DOCDIR} changelog)
compressed(${PROJECT_BINARY_DIR}/changelog.Debian ${CMAKE_INSTALL_DOCDIR})

# At install time, because the package has another prefix than the build.
install(CODE "
    set(KELP_INSTALLED_DAEMON \${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_SBINDIR}/kelp)
    set(KELP_INSTALLED_CONFIG \${CMAKE_INSTALL_PREFIX}/${kelp_data_dir}/kelp.json)
    set(KELP_ENVIRONMENT_FILE /etc/default/kelp)
    configure_file(${CMAKE_CURRENT_LIST_DIR}/kelp.service.in
        ${PROJECT_BINARY_DIR}/kelp.service @ONLY)")
install(FILES ${PROJECT_BINARY_DIR}/kelp.service DESTINATION ${kelp_unit_dir})

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_VENDOR "The kelp maintainers")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "command relay for factory and bench tests")
set(CPACK_PACKAGE_DESCRIPTION
    "kelp takes the short text commands of a test station over USB serial, UART,
TCP or a local socket, relays each to the daemon that serves it, and writes the
answer back. The package also has programs that simulate stations and peer
daemons.")
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
if(CMAKE_CROSSCOMPILING AND CMAKE_SYSTEM_PROCESSOR STREQUAL aarch64)
    set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE arm64)
endif()
# dpkg-shlibdeps cannot find the libraries of another architecture.
find_program(KELP_SHLIBDEPS dpkg-shlibdeps)
mark_as_advanced(KELP_SHLIBDEPS)
if(KELP_SHLIBDEPS AND NOT CMAKE_CROSSCOMPILING)
    set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
else()
    set(CPACK_DEBIAN_PACKAGE_DEPENDS "libc6, libstdc++6")
endif()
include(CPack)

if(KELP_BUILD_TESTS AND NOT CMAKE_CROSSCOMPILING)
    add_test(NAME install
        COMMAND ${PROJECT_SOURCE_DIR}/scripts/own-network
            ${PROJECT_SOURCE_DIR}/tests/install_test.sh ${CMAKE_COMMAND} ${PROJECT_BINARY_DIR})
    set_tests_properties(install PROPERTIES LABELS install TIMEOUT 300)
endif()
