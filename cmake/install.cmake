# cmake/install.cmake - what `cmake --install` puts below the prefix, in two components: `runtime` is the program with its
# pages, `development` the libraries with their headers. Nothing is written outside the prefix, and DESTDIR is honoured.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

# ---- the program --------------------------------------------------------------------------------------------------

install(TARGETS ventix RUNTIME COMPONENT runtime)
if(TARGET ventix-machine)
    install(TARGETS ventix-machine RUNTIME COMPONENT runtime)
endif()

# The commands' links stay out of the search path: `free`, `date`, `uptime` and `lsmem` would shadow the system's own.
# Whoever wants them puts this folder into PATH. Each command has a source file of its name.
set(links ${CMAKE_CURRENT_BINARY_DIR}/links)
file(REMOVE_RECURSE ${links})
file(MAKE_DIRECTORY ${links})
file(GLOB commands CONFIGURE_DEPENDS src/commands/*.cpp)
file(RELATIVE_PATH program /lib/ventix/bin /${CMAKE_INSTALL_BINDIR}/ventix)
foreach(source ${commands})
    get_filename_component(command ${source} NAME_WE)
    file(CREATE_LINK ${program} ${links}/${command} SYMBOLIC)
endforeach()
install(DIRECTORY ${links}/ DESTINATION lib/ventix/bin COMPONENT runtime)

install(DIRECTORY machines DESTINATION ${CMAKE_INSTALL_DATADIR}/ventix COMPONENT runtime)
install(DIRECTORY docs DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT runtime FILES_MATCHING PATTERN *.md
    PATTERN *.json PATTERN man EXCLUDE)
foreach(component_and_folder runtime:ventix development:libventix-dev)
    string(REPLACE ":" ";" component_and_folder ${component_and_folder})
    list(POP_FRONT component_and_folder component folder)
    install(FILES LICENSE DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${folder} COMPONENT ${component} RENAME copyright)
endforeach()

# ---- manual pages -------------------------------------------------------------------------------------------------

find_program(VENTIX_SCDOC scdoc DOC "Translates the manual pages")
if(NOT VENTIX_INSTALL)
    # Nobody installs from this build.
elseif(VENTIX_SCDOC)
    file(GLOB pages CONFIGURE_DEPENDS docs/man/*.scd)
    set(translate ${CMAKE_CURRENT_SOURCE_DIR}/docs/man/translate.sh)
    set(translated)
    foreach(page ${pages})
        get_filename_component(name ${page} NAME_WLE)
        set(target ${CMAKE_CURRENT_BINARY_DIR}/man/${name}.gz)
        add_custom_command(OUTPUT ${target} DEPENDS ${page} ${translate} CHANGELOG.md VERBATIM
            COMMAND sh -c "'${translate}' '${VENTIX_SCDOC}' $0 $1 <'${page}' | gzip -9n >'${target}'"
                ${PROJECT_VERSION} ${VENTIX_RELEASE_DATE})
        list(APPEND translated ${target})
        string(REGEX REPLACE ".*\\." "" section ${name})
        install(FILES ${target} DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section} COMPONENT runtime)
    endforeach()
    file(MAKE_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR}/man)
    add_custom_target(man ALL DEPENDS ${translated})
else()
    message(STATUS "No manual pages: scdoc is missing (apt-get install scdoc)")
endif()

# ---- completions --------------------------------------------------------------------------------------------------

if(VENTIX_INSTALL)
    add_executable(ventix_describe completions/describe.cpp)
    target_link_libraries(ventix_describe PRIVATE ventix_table)
    file(GLOB pages CONFIGURE_DEPENDS docs/man/*.scd)
    set(scripts)
    set(folder ${CMAKE_CURRENT_BINARY_DIR}/completions)
    foreach(script ventix.bash _ventix)
        add_custom_command(OUTPUT ${folder}/${script} VERBATIM
            DEPENDS ventix_describe ventix ventix-machine completions/generate.sh completions/${script} machines/demo.json
                ${pages}
            COMMAND sh -c "\"$0\" \"$@\" >'${folder}/${script}'" ${CMAKE_CURRENT_SOURCE_DIR}/completions/generate.sh
                $<TARGET_FILE:ventix_describe> $<TARGET_FILE:ventix> $<TARGET_FILE:ventix-machine>
                ${CMAKE_CURRENT_SOURCE_DIR}/docs/man ${CMAKE_CURRENT_SOURCE_DIR}/completions/${script})
        list(APPEND scripts ${folder}/${script})
    endforeach()
    add_custom_target(completions ALL DEPENDS ${scripts})
    install(FILES ${folder}/_ventix DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/site-functions COMPONENT runtime)
    install(FILES ${folder}/ventix.bash DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME ventix
        COMPONENT runtime)
    # bash-completion reads the file NAME, and without one NAME.bash, when NAME is first completed. The second form
    # leaves the first to packages whose tools have the names of commands (lsmem, task).
    file(REMOVE_RECURSE ${folder}/links)
    file(MAKE_DIRECTORY ${folder}/links)
    foreach(source ventix-machine.cpp ${commands})
        get_filename_component(command ${source} NAME_WE)
        file(CREATE_LINK ventix ${folder}/links/${command}.bash SYMBOLIC)
    endforeach()
    install(DIRECTORY ${folder}/links/ DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
        COMPONENT runtime)
endif()

# ---- libraries and headers ----------------------------------------------------------------------------------------

# Compiled once more: a user's program may be position-independent, which the static executable is not.
#   target  exported as ventix::EXPORTED
function(ventix_archive target exported archive)
    cmake_parse_arguments(PARSE_ARGV 3 archive "" "" "FOLDERS;LEAVE_OUT;LINK")
    set(all)
    foreach(folder ${archive_FOLDERS})
        file(GLOB_RECURSE sources CONFIGURE_DEPENDS ${folder}/*.cpp)
        list(APPEND all ${sources})
    endforeach()
    foreach(file ${archive_LEAVE_OUT})
        list(REMOVE_ITEM all ${CMAKE_CURRENT_SOURCE_DIR}/${file})
    endforeach()
    add_library(${target} STATIC ${all})
    set_target_properties(${target} PROPERTIES OUTPUT_NAME ${archive} EXPORT_NAME ${exported})
    target_compile_features(${target} PUBLIC cxx_std_20)
    target_compile_options(${target} PRIVATE $<TARGET_PROPERTY:ventix_flags,INTERFACE_COMPILE_OPTIONS> -fPIC)
    target_include_directories(${target} PRIVATE src ${CMAKE_CURRENT_BINARY_DIR}/generated
        INTERFACE $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/ventix>)
    target_link_libraries(${target} ${archive_LINK})
    install(TARGETS ${target} EXPORT ventixTargets ARCHIVE COMPONENT development)
endfunction()

if(VENTIX_INSTALL)
    ventix_archive(ventix_client_archive client ventix FOLDERS src/platform src/colp src/common
        LEAVE_OUT src/platform/${ventix_plain})
    ventix_archive(ventix_hosted_archive hosted ventix-hosted FOLDERS src/hosted
        LEAVE_OUT src/hosted/start.cpp src/hosted/described/schema.cpp LINK PUBLIC Threads::Threads)

    # Headers keep their folders, because they include one another by paths from there.
    set(headers ${CMAKE_INSTALL_INCLUDEDIR}/ventix)
    install(DIRECTORY src/platform DESTINATION ${headers} COMPONENT development FILES_MATCHING PATTERN *.h)
    install(DIRECTORY src/hosted DESTINATION ${headers} COMPONENT development FILES_MATCHING PATTERN *.h
        PATTERN live EXCLUDE PATTERN described EXCLUDE PATTERN wire EXCLUDE)
    install(FILES src/colp/colp.h DESTINATION ${headers}/colp COMPONENT development)
    install(FILES src/common/options.h src/common/vector.h src/common/deque.h src/common/lextras.h
        DESTINATION ${headers}/common COMPONENT development)

    set(cmake_folder ${CMAKE_INSTALL_LIBDIR}/cmake/ventix)
    install(EXPORT ventixTargets NAMESPACE ventix:: DESTINATION ${cmake_folder} COMPONENT development)
    file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/ventixConfig.cmake [[
include(CMakeFindDependencyMacro)
find_dependency(Threads)
include(${CMAKE_CURRENT_LIST_DIR}/ventixTargets.cmake)
]])
    write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/ventixConfigVersion.cmake COMPATIBILITY SameMinorVersion)
    install(FILES ${CMAKE_CURRENT_BINARY_DIR}/ventixConfig.cmake ${CMAKE_CURRENT_BINARY_DIR}/ventixConfigVersion.cmake
        DESTINATION ${cmake_folder} COMPONENT development)

    # The prefix is where the file lies, so a tree may be moved, and one build serves any prefix.
    file(RELATIVE_PATH up /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
    foreach(archive ventix ventix-hosted)
        if(archive STREQUAL ventix)
            set(about "Client library, column printer, containers and option parser of the ventix system")
            set(libs "-lventix")
        else()
            set(about "Hosted kernel of the ventix system, and its kit for device servers")
            set(libs "-lventix-hosted -pthread")
        endif()
        file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/${archive}.pc
            "prefix=\${pcfiledir}/${up}\nlibdir=\${prefix}/${CMAKE_INSTALL_LIBDIR}\n"
            "includedir=\${prefix}/${CMAKE_INSTALL_INCLUDEDIR}\n\nName: ${archive}\nDescription: ${about}\n"
            "Version: ${PROJECT_VERSION}\nLibs: -L\${libdir} ${libs}\nCflags: -I\${includedir}/ventix\n")
        install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${archive}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
            COMPONENT development)
    endforeach()
endif()
