# The Windows x86-64 build (MinGW-w64, posix threads): module_storage.dll with
# its three exports, hwc_cli.exe, and the Windows test program that runs under
# Wine. Included by the top-level CMakeLists.txt when the target is Windows;
# the module calls the platform's own functions here, not the simulated PC.
#
# Everything is linked statically (C++ runtime, libgcc, winpthread, QtCore), so
# that the DLL and the programs need nothing beside them but Windows' own DLLs
# and a host sees no runtime symbols of ours.

enable_language(C)  # the stand-in checker
set(CMAKE_CXX_STANDARD 17)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

find_program(CCACHE_PROGRAM ccache)
if(CCACHE_PROGRAM AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  set(CMAKE_CXX_COMPILER_LAUNCHER ${CMAKE_COMMAND} -E env CCACHE_BASEDIR=${CMAKE_SOURCE_DIR}
      CCACHE_NOHASHDIR=true CCACHE_SLOPPINESS=pch_defines,time_macros,include_file_mtime,include_file_ctime
      ${CCACHE_PROGRAM})
  set(CMAKE_C_COMPILER_LAUNCHER ${CMAKE_CXX_COMPILER_LAUNCHER})
endif()

option(MODULE_STORAGE_TESTS "Build the test program" ON)

add_compile_options(-Wall -Wextra -Werror)
# Windows 7 is the oldest system the module's calls are documented for.
add_compile_definitions(_WIN32_WINNT=0x0601 WINVER=0x0601)
set(MODULE_STORAGE_STATIC_RUNTIME -static -static-libgcc -static-libstdc++)

# QtCore, cross-built from Debian's source by scripts/build-qtcore-windows.sh;
# its tools (moc) are the build machine's.
find_package(Qt6 REQUIRED COMPONENTS Core)
find_package(Threads REQUIRED)

# nlohmann/json is header-only: the build machine's headers, reached through a
# folder of their own so that the rest of /usr/include stays out of sight.
set(MODULE_STORAGE_JSON_INCLUDE ${CMAKE_BINARY_DIR}/json-include)
if(NOT EXISTS ${MODULE_STORAGE_JSON_INCLUDE}/nlohmann/json.hpp)
  file(MAKE_DIRECTORY ${MODULE_STORAGE_JSON_INCLUDE})
  file(CREATE_LINK /usr/include/nlohmann ${MODULE_STORAGE_JSON_INCLUDE}/nlohmann SYMBOLIC)
endif()
add_library(nlohmann_json INTERFACE)
target_include_directories(nlohmann_json SYSTEM INTERFACE ${MODULE_STORAGE_JSON_INCLUDE})
add_library(nlohmann_json::nlohmann_json ALIAS nlohmann_json)

# The Windows libraries the module's calls live in.
set(MODULE_STORAGE_WINDOWS_LIBS setupapi ole32 oleaut32 wbemuuid uuid advapi32 kernel32)

function(collect_sources out dir)
  file(GLOB_RECURSE all CONFIGURE_DEPENDS "${CMAKE_CURRENT_SOURCE_DIR}/${dir}/*.cpp")
  list(FILTER all EXCLUDE REGEX "_test\\.cpp$")
  set(${out} ${all} PARENT_SCOPE)
endfunction()

# --- The module ---------------------------------------------------------------
collect_sources(MODULE_SOURCES src)
add_library(module_storage_objects OBJECT ${MODULE_SOURCES})
target_include_directories(module_storage_objects PUBLIC ${CMAKE_CURRENT_SOURCE_DIR}/include
                                                         ${CMAKE_CURRENT_SOURCE_DIR}/src)
target_link_libraries(module_storage_objects PUBLIC Qt6::Core nlohmann_json::nlohmann_json
                                                    ${MODULE_STORAGE_WINDOWS_LIBS})
# The platform's headers and the standard library's are most of what each
# source costs to compile; they are parsed once (ccache keeps the result).
target_precompile_headers(module_storage_objects PRIVATE
  "${CMAKE_CURRENT_SOURCE_DIR}/src/win32/win32.h" <algorithm> <cstdint> <cstring> <functional> <map> <memory>
  <string> <vector>)

add_library(module_storage_static STATIC $<TARGET_OBJECTS:module_storage_objects>)
target_link_libraries(module_storage_static PUBLIC module_storage_objects)

# The DLL a host loads: exactly the three entry points of the .def file are
# exported; nothing is exported automatically, so neither the C++ runtime nor
# QtCore, both linked in, leave it.
add_library(module_storage SHARED $<TARGET_OBJECTS:module_storage_objects>
            ${CMAKE_CURRENT_SOURCE_DIR}/src/module/exports.def)
target_link_libraries(module_storage PRIVATE Qt6::Core ${MODULE_STORAGE_WINDOWS_LIBS})
set_target_properties(module_storage PROPERTIES PREFIX "" OUTPUT_NAME module_storage)
target_link_options(module_storage PRIVATE ${MODULE_STORAGE_STATIC_RUNTIME}
  "-Wl,--exclude-all-symbols" "-Wl,--no-undefined")

# --- Front end ----------------------------------------------------------------
# The same front end as the Linux build (its own tests stay there: they load
# the module as a shared object); linked statically and put beside the DLL,
# where it looks for the module first.
add_subdirectory(cli)
target_link_options(hwc_cli PRIVATE ${MODULE_STORAGE_STATIC_RUNTIME})
set_target_properties(hwc_cli PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR})

if(NOT MODULE_STORAGE_TESTS)
  return()
endif()

# --- Tests --------------------------------------------------------------------
# GoogleTest from Debian's googletest source package: Debian ships no MinGW
# build of it.
set(MODULE_STORAGE_GTEST_SOURCE /usr/src/googletest CACHE PATH "GoogleTest sources")
set(BUILD_GMOCK ON CACHE BOOL "" FORCE)
set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
set(gtest_disable_pthreads OFF CACHE BOOL "" FORCE)
add_subdirectory(${MODULE_STORAGE_GTEST_SOURCE} ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL)
foreach(target gtest gtest_main gmock gmock_main)
  # Its sources are not ours to hold to -Werror.
  target_compile_options(${target} PRIVATE -w)
endforeach()

# The module's tests that need no simulated PC (they run on any Win32), and
# the *_windows_test.cpp files, which exercise the Win* services against the
# platform's own functions.
set(WINDOWS_TESTS
  src/commands/ata/ata_cmd_test.cpp
  src/commands/ata/ata_commands_test.cpp
  src/commands/bridges/ata_bridge_test.cpp
  src/commands/bridges/sat_bridge_test.cpp
  src/commands/bridges/vendor_bridges_test.cpp
  src/commands/hal/win_hal_ata_send_test.cpp
  src/commands/hal/win_hal_scsi_send_test.cpp
  src/commands/scsi/sat_pass_through_test.cpp
  src/commands/scsi/scsi_commands_test.cpp
  src/commands/scsi/sense_data_test.cpp
  src/commands/scsi/vendor_pass_through_test.cpp
  src/components/storage_component_test.cpp
  src/diagnostics/device_read_test.cpp
  src/diagnostics/smart_status_test.cpp
  src/module/catalogue_test.cpp
  src/module/diagnostic_test.cpp
  src/module/item_id_test.cpp
  src/module/read_helpers_test.cpp
  src/module/storage_test_test.cpp
  src/protocols/ata_protocol_logs_test.cpp
  src/protocols/emmc_utils_test.cpp
  src/protocols/protocol_functions_test.cpp
  src/protocols/storage_protocol_test.cpp
  src/raid/csmi/csmi_raid_component_test.cpp
  src/raid/lsi/lsi_bridges_test.cpp
  src/raid/lsi/lsi_raid_component_test.cpp
  src/raid/lsi/lsi_sender_test.cpp
  src/raid/raid_component_test.cpp
  src/resource/storage_resource_test.cpp
  src/scanner/partition_type_names_test.cpp
  src/system/cim_test.cpp
  src/system/key_value_patterns_test.cpp
  src/system/number_handler_imp_test.cpp
  src/system/number_handler_test.cpp
  src/system/string_handler_imp_test.cpp
  src/system/string_handler_test.cpp
  src/system/wide_text_test.cpp
  src/system/win_string_handler_imp_test.cpp
  src/tools/recover_bad_sectors_test.cpp
  src/tools/scan_tool_test.cpp
  src/tools/win_check_filesystem_output_test.cpp)
file(GLOB_RECURSE WINDOWS_ONLY_TESTS CONFIGURE_DEPENDS "${CMAKE_CURRENT_SOURCE_DIR}/src/*_windows_test.cpp")

collect_sources(TESTING_SOURCES testing)
# Image files for the Linux host provider's tests: POSIX files, not built here.
list(FILTER TESTING_SOURCES EXCLUDE REGEX "/disk_images\\.cpp$")
add_library(module_storage_testing STATIC ${TESTING_SOURCES})
target_link_libraries(module_storage_testing PUBLIC module_storage_static)
target_include_directories(module_storage_testing PUBLIC ${CMAKE_CURRENT_SOURCE_DIR})

add_executable(module_storage_windows_tests ${WINDOWS_TESTS} ${WINDOWS_ONLY_TESTS})
target_link_libraries(module_storage_windows_tests PRIVATE module_storage_testing gtest gmock gtest_main)
target_precompile_headers(module_storage_windows_tests PRIVATE
  <gtest/gtest.h> <gmock/gmock.h> "${CMAKE_CURRENT_SOURCE_DIR}/src/win32/win32.h" <memory> <string> <vector>)
target_link_options(module_storage_windows_tests PRIVATE ${MODULE_STORAGE_STATIC_RUNTIME})
target_compile_definitions(module_storage_windows_tests PRIVATE
  CHECKER_STAND_IN_PATH="$<TARGET_FILE_NAME:checker_stand_in>")
add_dependencies(module_storage_windows_tests checker_stand_in)

# A stand-in for the system's file-system checker: prints what a checker
# prints and ends with the status it is told to.
add_executable(checker_stand_in testing/checker_stand_in.c)
target_link_options(checker_stand_in PRIVATE ${MODULE_STORAGE_STATIC_RUNTIME})

# A host that sees only the public headers and reaches the real DLL through
# LoadLibrary and its three exports.
add_executable(module_entry_host_test src/module/module_entry_host_test.cpp)
target_include_directories(module_entry_host_test PRIVATE ${CMAKE_CURRENT_SOURCE_DIR}/include)
target_link_libraries(module_entry_host_test PRIVATE gtest gtest_main)
target_link_options(module_entry_host_test PRIVATE ${MODULE_STORAGE_STATIC_RUNTIME})
target_compile_definitions(module_entry_host_test PRIVATE MODULE_STORAGE_LIBRARY_PATH="module_storage.dll")
add_dependencies(module_entry_host_test module_storage)

# `make test-wine` runs these under Wine (the emulator); the export table is
# read on the build machine.
enable_testing()
add_test(NAME dll_exports COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/scripts/check-windows-exports.sh
                                  $<TARGET_FILE:module_storage>)
add_test(NAME module_storage_windows_tests COMMAND module_storage_windows_tests)
add_test(NAME module_entry_host_test COMMAND module_entry_host_test)
set_tests_properties(module_storage_windows_tests module_entry_host_test PROPERTIES
  WORKING_DIRECTORY ${CMAKE_BINARY_DIR})
