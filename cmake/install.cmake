# What an installation consists of, and the packages that are made of it. A release is stripped on
# its way there by the objtrim that was just built.
include(GNUInstallDirs)

set(OBJTRIM_STRIPPER "" CACHE FILEPATH "The objtrim that strips what is installed of a release; \
empty: the one that is built, if it runs here")
set(OBJTRIM_PACKAGE_CONTACT "" CACHE STRING
    "Whom the packages name as their maintainer; empty: as DEBFULLNAME and DEBEMAIL say")

set(installed_programs objtrim)
if(TARGET lbm)
    list(APPEND installed_programs lbm) # objtrim runs it, and looks for it beside itself
endif()
install(TARGETS ${installed_programs} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})

set(stripper "${OBJTRIM_STRIPPER}")
if(NOT stripper AND NOT CMAKE_CROSSCOMPILING)
    set(stripper "$<TARGET_FILE:objtrim>")
endif()
if(stripper AND CMAKE_BUILD_TYPE STREQUAL "Release")
    foreach(program IN LISTS installed_programs)
        set(installed "\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_BINDIR}")
        install(CODE "execute_process(COMMAND \"${stripper}\" -a
            \"${installed}/$<TARGET_FILE_NAME:${program}>\" COMMAND_ERROR_IS_FATAL ANY)")
    endforeach()
endif()

# --- documents, completion, the wrapper -----------------------------------------------------------

file(GLOB manual_pages CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/docs/*.1)
file(GLOB documents CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/docs/*.md)
foreach(document README CHANGELOG CONTRIBUTING)
    install(FILES ${PROJECT_SOURCE_DIR}/${document}.md DESTINATION ${CMAKE_INSTALL_DOCDIR})
endforeach()
install(FILES ${documents} DESTINATION ${CMAKE_INSTALL_DOCDIR}/docs)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/docs/benchmarks DESTINATION ${CMAKE_INSTALL_DOCDIR}/docs)
if(WIN32)
    install(FILES ${manual_pages} DESTINATION ${CMAKE_INSTALL_DOCDIR}/docs)
else()
    set(contrib ${PROJECT_SOURCE_DIR}/contrib)
    install(FILES ${manual_pages} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
    install(PROGRAMS ${PROJECT_BINARY_DIR}/contrib/objtrim-as-strip DESTINATION ${CMAKE_INSTALL_BINDIR})
    install(FILES ${contrib}/completion/objtrim.bash RENAME objtrim
        DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
    # Debian's zsh looks for what packages bring in a directory of its own.
    install(CODE "
        set(zsh_directory site-functions)
        if(CMAKE_INSTALL_PREFIX STREQUAL \"/usr\" AND EXISTS /etc/debian_version)
            set(zsh_directory vendor-completions)
        endif()
        file(INSTALL \"${contrib}/completion/_objtrim\"
            DESTINATION \"\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_DATADIR}/zsh/\${zsh_directory}\")")
endif()

# --- packages -------------------------------------------------------------------------------------

# The version that the program tells is the version of its packages.
file(STRINGS ${PROJECT_SOURCE_DIR}/src/util/version.cpp stamp REGEX "@\\(#\\).*Compiler v[0-9.]+")
string(REGEX MATCH "v([0-9]+\\.[0-9]+\\.[0-9]+)" stamp "${stamp}")
set(CPACK_PACKAGE_VERSION ${CMAKE_MATCH_1})
set(CPACK_PACKAGE_NAME objtrim)
set(CPACK_PACKAGE_VENDOR "objtrim")
# Who builds a package answers for it. A package has to name someone; the top-level domain "invalid"
# is reserved for addresses that lead nowhere.
if(OBJTRIM_PACKAGE_CONTACT)
    set(CPACK_PACKAGE_CONTACT "${OBJTRIM_PACKAGE_CONTACT}")
elseif(DEFINED ENV{DEBFULLNAME} AND DEFINED ENV{DEBEMAIL})
    set(CPACK_PACKAGE_CONTACT "$ENV{DEBFULLNAME} <$ENV{DEBEMAIL}>")
else()
    set(CPACK_PACKAGE_CONTACT "Unknown builder <unknown@invalid>")
endif()
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "strip utility for object files of embedded targets")
set(CPACK_PACKAGE_DESCRIPTION "Removes symbols, debugging information and line numbers from ELF \
and COFF files and PE images of any target, and leaves what is loaded at run time as it was.")
set(CPACK_VERBATIM_VARIABLES ON)
if(WIN32)
    set(CPACK_GENERATOR ZIP)
else()
    set(CPACK_GENERATOR DEB TGZ)
    set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
    set(CPACK_DEBIAN_PACKAGE_SECTION devel)
    find_program(dpkg_shlibdeps dpkg-shlibdeps)
    find_program(file_program file)
    mark_as_advanced(dpkg_shlibdeps file_program)
    if(dpkg_shlibdeps AND file_program)
        set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
    endif()
endif()
include(CPack)
