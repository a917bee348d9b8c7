# cmake/package.cmake - packages made by CPack: `ventix` and `libventix-dev` for Debian, and both together as a plain
# tar.gz. Two builds of one commit give the same bytes where SOURCE_DATE_EPOCH is set.
set(CPACK_PACKAGE_NAME ventix)
set(CPACK_PACKAGE_VENDOR "ventix")
set(CPACK_PACKAGE_CONTACT "ventix developers <ventix@ventix.invalid>")
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
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "system toolbox of a message-passing microkernel system
Twenty-five commands that show and change tasks, threads, memory, interrupts,
registry, devices, services, log and clock. On Linux a hosted kernel shows the
system itself, or a machine that is described in a file.")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libventix-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SUGGESTS ventix)
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "libraries of the ventix system
Static libraries and headers: the client library, the column printer, the
containers and the option parser, and the hosted kernel with what a device
server needs.")

# What only a Debian package has lies in one folder, a folder of it for each component: the release's notes, a changelog of
# the packaging (one entry is enough for a package built from the source tree itself), and what lintian need not report.
find_program(VENTIX_GZIP gzip)
set(debian ${CMAKE_CURRENT_BINARY_DIR}/debian)
file(REMOVE_RECURSE ${debian})
if(VENTIX_GZIP)
    execute_process(COMMAND date -u -R -d ${VENTIX_RELEASE_DATE} OUTPUT_VARIABLE date OUTPUT_STRIP_TRAILING_WHITESPACE)
    foreach(component_and_package runtime:ventix development:libventix-dev)
        string(REPLACE ":" ";" component_and_package ${component_and_package})
        list(POP_FRONT component_and_package component package)
        set(share ${debian}/${component}/usr/share)
        set(changelog ${share}/doc/${package}/changelog)
        file(WRITE ${changelog}.Debian
            "${package} (${PROJECT_VERSION}-1) unstable; urgency=medium\n\n  * Package version ${PROJECT_VERSION}.\n\n"
            " -- ${CPACK_PACKAGE_CONTACT}  ${date}\n")
        configure_file(CHANGELOG.md ${changelog} COPYONLY)
        execute_process(COMMAND ${VENTIX_GZIP} -9n ${changelog} ${changelog}.Debian)
        configure_file(cmake/lintian/${package} ${share}/lintian/overrides/${package} COPYONLY)
    endforeach()
endif()

# Files carry the time of the commit, not that of the build. CPack counts a link as the file that it leads to: the size
# is counted once more, by Debian's own rule, and the package built anew.
file(CONFIGURE OUTPUT before_packing.cmake @ONLY CONTENT [[
if(CPACK_GENERATOR STREQUAL DEB)
    file(COPY "@debian@/" DESTINATION ${CPACK_TEMPORARY_DIRECTORY})
    # Where Debian's zsh looks for functions of packages.
    set(zsh ${CPACK_TEMPORARY_DIRECTORY}/runtime/usr/share/zsh)
    file(RENAME ${zsh}/site-functions ${zsh}/vendor-completions)
endif()
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
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")  # would precede each package's own
]])
set(CPACK_PROJECT_CONFIG_FILE ${CMAKE_CURRENT_BINARY_DIR}/cpack_generator.cmake)
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_BINARY_DIR}/before_packing.cmake)
set(CPACK_POST_BUILD_SCRIPTS ${CMAKE_CURRENT_BINARY_DIR}/true_sizes.cmake)
include(CPack)
