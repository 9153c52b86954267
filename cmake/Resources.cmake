# Mirrors resources/ into the build tree and adds the tool links there.
include(${CMAKE_CURRENT_LIST_DIR}/ToolLinks.cmake)
varnel_make_tool_links("${VARNEL_BUILD_RESOURCES}")

file(GLOB_RECURSE VARNEL_RESOURCE_FILES CONFIGURE_DEPENDS
     RELATIVE ${CMAKE_SOURCE_DIR}/resources ${CMAKE_SOURCE_DIR}/resources/*)
set(VARNEL_RESOURCE_OUTPUTS "")
foreach(rel IN LISTS VARNEL_RESOURCE_FILES)
    add_custom_command(
        OUTPUT ${VARNEL_BUILD_RESOURCES}/${rel}
        COMMAND ${CMAKE_COMMAND} -E copy_if_different ${CMAKE_SOURCE_DIR}/resources/${rel}
                ${VARNEL_BUILD_RESOURCES}/${rel}
        DEPENDS ${CMAKE_SOURCE_DIR}/resources/${rel}
        COMMENT "Resource ${rel}" VERBATIM)
    list(APPEND VARNEL_RESOURCE_OUTPUTS ${VARNEL_BUILD_RESOURCES}/${rel})
endforeach()
add_custom_target(varnel_resources ALL DEPENDS ${VARNEL_RESOURCE_OUTPUTS})
