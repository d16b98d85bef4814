# Builds QMdnsEngine from its public repository as a part of this build. Without a network, give a copy
# of its sources with -DFETCHCONTENT_SOURCE_DIR_QMDNSENGINE=DIRECTORY.
include(FetchContent)
FetchContent_Declare(qmdnsengine
    GIT_REPOSITORY https://github.com/nitroshare/qmdnsengine.git
    GIT_TAG 3276f604058701b00f4f0e558fa39a7f9fefb47e) # 0.2.1
FetchContent_GetProperties(qmdnsengine)
if(NOT qmdnsengine_POPULATED)
    FetchContent_Populate(qmdnsengine)
    set(QT_DIR ${Qt5_DIR} CACHE PATH "The Qt that QMdnsEngine takes: it prefers a Qt 6 that is there")
    # Only the library that the program links with, and none of its install rules.
    add_subdirectory(${qmdnsengine_SOURCE_DIR} ${qmdnsengine_BINARY_DIR} EXCLUDE_FROM_ALL)
endif()
# Its headers are not held to this project's warnings.
get_target_property(directories qmdnsengine INTERFACE_INCLUDE_DIRECTORIES)
set_target_properties(qmdnsengine PROPERTIES
    INTERFACE_SYSTEM_INCLUDE_DIRECTORIES "${directories}")
set(qmdnsengine_FOUND ON)
set(qmdnsengine_VERSION "0.2.1, built here")
