# The docs target: API documentation of the public headers with Doxygen,
# warnings as errors (settings in docs/Doxyfile). HTML in <build>/docs/html.
find_package(Doxygen QUIET)
if(NOT DOXYGEN_FOUND)
  message(STATUS "Doxygen not found: no docs target")
  return()
endif()

include(OstrelPublicHeaders)
set(OSTREL_DOXYGEN_INPUT ${PROJECT_SOURCE_DIR}/docs/mainpage.md)
foreach(header IN LISTS OSTREL_PUBLIC_HEADERS)
  if(EXISTS ${PROJECT_SOURCE_DIR}/${header})
    list(APPEND OSTREL_DOXYGEN_INPUT ${PROJECT_SOURCE_DIR}/${header})
  endif()
endforeach()
foreach(dir IN LISTS OSTREL_PLATFORM_HEADER_DIRS)
  list(APPEND OSTREL_DOXYGEN_INPUT ${PROJECT_SOURCE_DIR}/${dir})
endforeach()
list(JOIN OSTREL_DOXYGEN_INPUT "\" \"" OSTREL_DOXYGEN_INPUT_TEXT)

# The repository's settings, with the input and output of this build.
file(WRITE ${PROJECT_BINARY_DIR}/Doxyfile
  "@INCLUDE = \"${PROJECT_SOURCE_DIR}/docs/Doxyfile\"\n"
  "INPUT = \"${OSTREL_DOXYGEN_INPUT_TEXT}\"\n"
  "OUTPUT_DIRECTORY = \"${PROJECT_BINARY_DIR}/docs\"\n"
  "STRIP_FROM_PATH = \"${PROJECT_SOURCE_DIR}\"\n")

add_custom_target(docs
  COMMAND ${CMAKE_COMMAND} -E make_directory ${PROJECT_BINARY_DIR}/docs
  COMMAND Doxygen::doxygen ${PROJECT_BINARY_DIR}/Doxyfile
  WORKING_DIRECTORY ${PROJECT_SOURCE_DIR}
  COMMENT "API documentation (Doxygen)"
  VERBATIM)
