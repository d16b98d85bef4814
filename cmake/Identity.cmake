# The names that packages and file resources carry come from the identity header, like the version.
file(READ ${PROJECT_SOURCE_DIR}/src/Identity.h identityHeader)
foreach(name organisation webDomain desktopId)
    if(NOT identityHeader MATCHES "${name}\\(\\)[^\"]*\"([^\"]+)\"")
        message(FATAL_ERROR "src/Identity.h names no ${name}")
    endif()
    set(NODEPATCH_${name} "${CMAKE_MATCH_1}")
endforeach()
