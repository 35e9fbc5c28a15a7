# kiosk_add_build_stamp(TARGET FILES...): a static library with the text that kBuildStamp names.
#
# The stamp is made anew whenever one of FILES is newer, so an unchanged tree builds nothing. It is
# the time of the build in UTC, or of SOURCE_DATE_EPOCH when that is set (`string(TIMESTAMP)` honours
# it), so that a package can be built twice with the same result.
function(kiosk_add_build_stamp target)
  set(stamp_file ${CMAKE_CURRENT_BINARY_DIR}/build_stamp.cc)
  add_custom_command(
    OUTPUT ${stamp_file}
    COMMAND ${CMAKE_COMMAND} -DOUTPUT=${stamp_file} -P ${PROJECT_SOURCE_DIR}/cmake/WriteBuildStamp.cmake
    DEPENDS ${ARGN} ${PROJECT_SOURCE_DIR}/cmake/WriteBuildStamp.cmake
    COMMENT "Stamping the build"
    VERBATIM)
  add_library(${target} STATIC ${stamp_file})
  target_include_directories(${target} PRIVATE ${PROJECT_SOURCE_DIR}/src)
  target_link_libraries(${target} PRIVATE kiosk_options)
endfunction()
