# Installation on a bench PC, also for the Debian package (debian/rules), and its test. Android's
# build installs kelp on a device.
if(ANDROID)
    return()
endif()

include(GNUInstallDirs)
include(cmake/manualpage.cmake)
set(kelp_data_dir ${CMAKE_INSTALL_DATADIR}/kelp)
set(KELP_UNIT_DIR lib/systemd/system CACHE STRING "Where systemd finds the unit")

install(TARGETS kelp DESTINATION ${CMAKE_INSTALL_SBINDIR})
install(FILES docs/man/kelp.8 DESTINATION ${CMAKE_INSTALL_MANDIR}/man8)
install(FILES docs/man/kelp.json.5 DESTINATION ${CMAKE_INSTALL_MANDIR}/man5)
foreach(tool ${KELP_TOOLS})
    install(TARGETS ${tool} DESTINATION ${CMAKE_INSTALL_BINDIR})
    kelp_manual_page(page ${tool})
    if(page)
        install(FILES ${page} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
    endif()
endforeach()

# The service's initial configuration, and the schema for editors.
install(FILES examples/kelp.json examples/kelp.schema.json DESTINATION ${kelp_data_dir})
install(FILES examples/bench-peers.json examples/kelp-tty.conf
    DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples)
install(DIRECTORY examples/labgrid DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples
    PATTERN "__pycache__" EXCLUDE)
install(FILES CHANGELOG.md docs/bench.md docs/protocol.md DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(FILES NOTICE DESTINATION ${CMAKE_INSTALL_DOCDIR} RENAME copyright)

# At install time, because `cmake --install --prefix` may name another prefix than the build.
install(CODE "
    set(KELP_INSTALLED_DAEMON \${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_SBINDIR}/kelp)
    set(KELP_INSTALLED_CHECK \${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_BINDIR}/kelp-check)
    set(KELP_INSTALLED_CONFIG \${CMAKE_INSTALL_PREFIX}/${kelp_data_dir}/kelp.json)
    configure_file(\"${CMAKE_CURRENT_LIST_DIR}/kelp.service.in\"
        \"${PROJECT_BINARY_DIR}/kelp.service\" @ONLY)")
install(FILES ${PROJECT_BINARY_DIR}/kelp.service DESTINATION ${KELP_UNIT_DIR})

if(KELP_BUILD_TESTS AND NOT CMAKE_CROSSCOMPILING)
    add_test(NAME install
        COMMAND ${PROJECT_SOURCE_DIR}/scripts/own-network
            ${PROJECT_SOURCE_DIR}/tests/install_test.sh ${CMAKE_COMMAND} ${PROJECT_BINARY_DIR})
    set_tests_properties(install PROPERTIES LABELS install TIMEOUT 300)
endif()
