# cmake/package.cmake - packages made by CPack: `ventix` and `libventix-dev` for Debian, and both together as a plain
# tar.gz. Two builds of one commit give the same bytes where SOURCE_DATE_EPOCH is set.
set(CPACK_PACKAGE_NAME ventix)
set(CPACK_PACKAGE_VENDOR "ventix")
set(CPACK_PACKAGE_CONTACT "ventix developers <ventix@ventix.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "system toolbox of a message-passing microkernel system")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_GENERATOR TGZ DEB)
set(CPACK_PACKAGE_FILE_NAME "ventix-${PROJECT_VERSION}-${CMAKE_SYSTEM_NAME}-${CMAKE_SYSTEM_PROCESSOR}")
set(CPACK_COMPONENTS_ALL runtime)
if(VENTIX_INSTALL)
    list(APPEND CPACK_COMPONENTS_ALL development)
endif()
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_STRIP_FILES OFF)  # the executables are linked stripped, archives keep their symbols
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE
    WORLD_READ WORLD_EXECUTE)
set(CPACK_ARCHIVE_COMPONENT_INSTALL OFF)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
if(NOT VENTIX_STATIC)
    set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)  # the static executable depends on nothing
endif()
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ventix)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "Twenty-five commands that show and change tasks, threads, memory, interrupts,
registry, devices, services, log and clock. On Linux a hosted kernel shows the
system itself, or a machine that is described in a file.")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libventix-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SUGGESTS ventix)
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "libraries of the ventix system
Static libraries and headers: the client library, the column printer, the
containers and the option parser, and the hosted kernel with what a device
server needs.")

# Debian wants the release's notes and a changelog of the packaging, one entry being enough for a package that is built
# from the source tree itself.
find_program(VENTIX_GZIP gzip)
if(VENTIX_GZIP)
    set(changes ${CMAKE_CURRENT_BINARY_DIR}/changes)
    file(MAKE_DIRECTORY ${changes})
    foreach(package ventix libventix-dev)
        execute_process(COMMAND date -u -R -d ${VENTIX_RELEASE_DATE} OUTPUT_VARIABLE date OUTPUT_STRIP_TRAILING_WHITESPACE)
        file(WRITE ${changes}/${package}
            "${package} (${PROJECT_VERSION}-1) unstable; urgency=medium\n\n  * Package version ${PROJECT_VERSION}.\n\n"
            " -- ${CPACK_PACKAGE_CONTACT}  ${date}\n")
        execute_process(COMMAND ${VENTIX_GZIP} -9nc ${changes}/${package} OUTPUT_FILE ${changes}/${package}.gz)
        execute_process(COMMAND ${VENTIX_GZIP} -9nc ${CMAKE_CURRENT_SOURCE_DIR}/CHANGELOG.md
            OUTPUT_FILE ${changes}/changelog.gz)
        if(package STREQUAL ventix)
            set(component runtime)
        else()
            set(component development)
        endif()
        install(FILES ${changes}/${package}.gz DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${package}
            COMPONENT ${component} RENAME changelog.Debian.gz)
        install(FILES ${changes}/changelog.gz DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${package}
            COMPONENT ${component})
        install(FILES cmake/lintian/${package} DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides
            COMPONENT ${component})
    endforeach()
endif()

# Files carry the time of the commit, not that of the build. CPack counts a link as the file that it leads to: the size
# is counted once more, by Debian's own rule, and the package built anew.
file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/same_times.cmake [[
if(DEFINED ENV{SOURCE_DATE_EPOCH})
    execute_process(COMMAND find ${CPACK_TEMPORARY_DIRECTORY} -exec touch -h -d @$ENV{SOURCE_DATE_EPOCH} {} +)
endif()
]])
file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/true_sizes.cmake [=[
foreach(package ${CPACK_PACKAGE_FILES})
    if(package MATCHES "\\.deb$")
        execute_process(COMMAND sh -euc [[
            rm -rf "$1.d"
            dpkg-deb -R "$1" "$1.d"
            size=$(find "$1.d" -path "$1.d/DEBIAN" -prune -o -type f -printf '%s\n' -o -printf '1\n' |
                awk '{ sum += int(($1 + 1023) / 1024) } END { print sum }')
            sed -i "s/^Installed-Size: .*/Installed-Size: $size/" "$1.d/DEBIAN/control"
            [ -z "${SOURCE_DATE_EPOCH-}" ] || find "$1.d" -exec touch -h -d "@$SOURCE_DATE_EPOCH" {} +
            dpkg-deb --root-owner-group -Zxz -b "$1.d" "$1" >/dev/null
            rm -rf "$1.d"
            ]] sh ${package} COMMAND_ERROR_IS_FATAL ANY)
    endif()
endforeach()
]=])
file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/cpack_generator.cmake [[
if(CPACK_GENERATOR STREQUAL TGZ)
    set(CPACK_PACKAGING_INSTALL_PREFIX /)
endif()
]])
set(CPACK_PROJECT_CONFIG_FILE ${CMAKE_CURRENT_BINARY_DIR}/cpack_generator.cmake)
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_BINARY_DIR}/same_times.cmake)
set(CPACK_POST_BUILD_SCRIPTS ${CMAKE_CURRENT_BINARY_DIR}/true_sizes.cmake)
include(CPack)
