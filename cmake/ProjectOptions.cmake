# Warnings, sanitizers and Windows link rules shared by every target of the project.

add_library(dl_warnings INTERFACE)
target_compile_options(dl_warnings INTERFACE -Wall -Wextra -Werror)
if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
  # Checks the GUARDED_BY / REQUIRES rules of <wisp/ThreadAnnotations.h>.
  target_compile_options(dl_warnings INTERFACE -Wthread-safety -Werror=thread-safety)
endif()

set(DL_SANITIZE "" CACHE STRING "Sanitizers to build with: address,undefined or thread")
if(DL_SANITIZE)
  add_compile_options(-fsanitize=${DL_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${DL_SANITIZE})
endif()

if(DL_BUILD_FUZZ)
  # Coverage feedback for libFuzzer from the library's own code, not only from
  # the fuzz targets; each target links the fuzzer runtime itself.
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()

if(WIN32)
  # Windows targets carry their C++ runtime inside: a DLL or program of this
  # project imports nothing but system DLLs.
  add_compile_definitions(WIN32_LEAN_AND_MEAN NOMINMAX UNICODE _UNICODE _WIN32_WINNT=0x0601)
  add_link_options(-static -static-libgcc -static-libstdc++)
endif()

# dl_add_shared_library(name EXPORT_HEADER path SOURCES ...) compiles the code once
# as an object library `<name>_obj` and wraps those objects into the shared
# library `<name>`, which exports only what carries the export macro. Tests link
# `<name>_obj` straight into their programs because they reach internals; for
# them the export macro is empty (`<NAME>_STATIC_DEFINE`).
include(GenerateExportHeader)
function(dl_add_shared_library name)
  cmake_parse_arguments(ARG "" "EXPORT_HEADER;BASE_NAME" "SOURCES" ${ARGN})
  add_library(${name}_obj OBJECT ${ARG_SOURCES})
  generate_export_header(${name}_obj
    BASE_NAME ${ARG_BASE_NAME}
    EXPORT_FILE_NAME ${PROJECT_BINARY_DIR}/include/${ARG_EXPORT_HEADER})
  string(TOUPPER ${ARG_BASE_NAME} upper)
  target_compile_definitions(${name}_obj PRIVATE ${name}_obj_EXPORTS INTERFACE ${upper}_STATIC_DEFINE)
  target_include_directories(${name}_obj PUBLIC $<BUILD_INTERFACE:${PROJECT_BINARY_DIR}/include>)
  target_link_libraries(${name}_obj PRIVATE dl_warnings)
  add_library(${name} SHARED $<TARGET_OBJECTS:${name}_obj>)
  target_include_directories(${name} PUBLIC
    $<BUILD_INTERFACE:${PROJECT_BINARY_DIR}/include>
    $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
  # The SONAME carries the major version: libNAME.so.0 -> libNAME.so.0.x.y.
  set_target_properties(${name} PROPERTIES
    VERSION ${PROJECT_VERSION}
    SOVERSION ${PROJECT_VERSION_MAJOR}
    EXPORT_NAME ${name})
  if(WIN32)
    set_target_properties(${name} PROPERTIES PREFIX "")
  endif()
endfunction()
