# What is installed, and the Debian package made of it. Included when all targets are known.
if(NOT TARGET nodepatch OR NOT UNIX OR APPLE)
    return()
endif()

include(${CMAKE_CURRENT_LIST_DIR}/Identity.cmake)
set(NODEPATCH_ID ${NODEPATCH_desktopId})
set(package velmora-nodepatch)
set(from ${PROJECT_SOURCE_DIR}/platform/linux)
set(made ${PROJECT_BINARY_DIR}/package-files)

# The update library is private to the program: no other program may link with it, and the maker's
# library can be put over it without touching a directory of the system's. In the architecture's
# directory, because CPack takes a directory right below lib for a public one and calls ldconfig.
set(privateLibraries ${CMAKE_INSTALL_LIBDIR})
if(CMAKE_LIBRARY_ARCHITECTURE AND NOT privateLibraries MATCHES "${CMAKE_LIBRARY_ARCHITECTURE}")
    string(APPEND privateLibraries /${CMAKE_LIBRARY_ARCHITECTURE})
endif()
string(APPEND privateLibraries /${package})
file(RELATIVE_PATH fromProgram
    ${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_BINDIR} ${CMAKE_INSTALL_PREFIX}/${privateLibraries})
set_target_properties(nodepatch PROPERTIES INSTALL_RPATH "$ORIGIN/${fromProgram}")
foreach(target nodepatch VxUtil)
    target_link_options(${target} PRIVATE LINKER:-z,relro,-z,now)
endforeach()
install(TARGETS nodepatch RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(TARGETS VxUtil LIBRARY DESTINATION ${privateLibraries} NAMELINK_SKIP)

# The desktop.
configure_file(${from}/${NODEPATCH_ID}.metainfo.xml.in ${made}/${NODEPATCH_ID}.metainfo.xml @ONLY)
install(FILES ${from}/${NODEPATCH_ID}.desktop DESTINATION ${CMAKE_INSTALL_DATADIR}/applications)
install(FILES ${made}/${NODEPATCH_ID}.metainfo.xml DESTINATION ${CMAKE_INSTALL_DATADIR}/metainfo)
set(icons ${CMAKE_INSTALL_DATADIR}/icons/hicolor)
foreach(size 16x16 22x22 24x24 32x32 48x48 64x64)
    install(FILES ${from}/icons/${size}.png
        DESTINATION ${icons}/${size}/apps RENAME ${NODEPATCH_ID}.png)
endforeach()
foreach(size 128x128 256x256 512x512)
    install(FILES ${PROJECT_SOURCE_DIR}/img/NodePatch_Icon_${size}.png
        DESTINATION ${icons}/${size}/apps RENAME ${NODEPATCH_ID}.png)
endforeach()
install(FILES ${PROJECT_SOURCE_DIR}/artwork/NodePatch_Icon.svg
    DESTINATION ${icons}/scalable/apps RENAME ${NODEPATCH_ID}.svg)

# The documents, compressed as Debian wants them: without a time stamp, so that the same sources
# give the same files.
function(install_compressed source destination name)
    configure_file(${from}/${source} ${made}/${name} @ONLY)
    add_custom_command(OUTPUT ${made}/${name}.gz
        COMMAND gzip -9nc ${name} > ${name}.gz
        DEPENDS ${made}/${name} WORKING_DIRECTORY ${made} VERBATIM)
    add_custom_target(compress_${source} ALL DEPENDS ${made}/${name}.gz)
    install(FILES ${made}/${name}.gz DESTINATION ${destination})
endfunction()
set(documents ${CMAKE_INSTALL_DATADIR}/doc/${package})
install_compressed(${package}.1.in ${CMAKE_INSTALL_MANDIR}/man1 ${package}.1)
install_compressed(changelog.in ${documents} changelog)
install(FILES ${from}/copyright ${PROJECT_SOURCE_DIR}/docs/user-guide.md DESTINATION ${documents})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/docs/images DESTINATION ${documents})

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME ${package})
set(CPACK_PACKAGE_VENDOR ${NODEPATCH_organisation})
set(CPACK_PACKAGE_CONTACT "${NODEPATCH_organisation} <support@${NODEPATCH_webDomain}>")
set(CPACK_PACKAGE_HOMEPAGE_URL https://${NODEPATCH_webDomain}/nodepatch)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "patch panel for NMOS senders and receivers")
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
"Finds the nodes of a broadcast IP network that follow the AMWA NMOS
specifications, by multicast DNS or by address, and patches the video, audio
and ancillary data senders of one node to the receivers of another with one
button.
.
It reads nodes through IS-04, drives them through IS-05, and shows the session
descriptions that they offer.")
set(CPACK_DEBIAN_PACKAGE_SECTION net)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/platform/vxutil)
# To trust the release feed's certificate, and to open web pages.
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "ca-certificates, xdg-utils")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_STRIP_FILES ON)
set(CPACK_VERBATIM_VARIABLES ON)
include(CPack)
