# Options that hold for every target, and the one function that declares a folder of the library.
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)

# Debug information stays readable for Wine's debugging-help library; see the toolchain file.
set(CMAKE_CXX_FLAGS_RELWITHDEBINFO "-O2 -g -DNDEBUG")

# Texts that name a source file tell the same on every machine.
add_compile_options(-fmacro-prefix-map=${PROJECT_SOURCE_DIR}/=)

# What our own sources are compiled with; libraries that the tests bring along are not.
add_library(osse_warnings INTERFACE)
target_compile_options(osse_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wformat=2 -Wundef
  -Wcast-qual -Wold-style-cast -Wnon-virtual-dtor -Werror
  # GCC trusts a format that is handed on with its va_list, as ours are; Clang does not.
  $<$<CXX_COMPILER_ID:Clang>:-Wno-format-nonliteral>)
if(MINGW AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  # The texts of records are in the run-time's own dialect, %I64u and its kin.
  target_compile_options(osse_warnings INTERFACE -Wno-pedantic-ms-format)
endif()

# What every object of the build needs, ours or not.
if(OSSE_COVERAGE)
  add_compile_options(--coverage -fprofile-update=atomic)
  add_link_options(--coverage)
endif()
if(OSSE_SANITIZE)
  add_compile_options(-fsanitize=${OSSE_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer -g)
  add_link_options(-fsanitize=${OSSE_SANITIZE})
endif()
if(OSSE_FUZZ)
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()
if(MINGW)
  # Run-times are linked in: the product imports system libraries only.
  add_link_options(-static)
  add_compile_definitions(_WIN32_WINNT=0x0601 WIN32_LEAN_AND_MEAN NOMINMAX)
endif()

# osse_family(<folder> [PURE <sources>] [SYSTEM <sources>] [HOST <sources>])
#
# Declares one folder of the library as an object library, osse_<folder>. PURE sources include no
# platform header and are built everywhere; SYSTEM sources are the Windows side; HOST sources stand
# in for the system in the native build of the pure logic.
set_property(GLOBAL PROPERTY OSSE_FAMILIES "")
function(osse_family folder)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "PURE;SYSTEM;HOST")
  set(sources ${arg_PURE})
  if(WIN32)
    list(APPEND sources ${arg_SYSTEM})
  else()
    list(APPEND sources ${arg_HOST})
  endif()

  add_library(osse_${folder} OBJECT ${sources})
  target_compile_definitions(osse_${folder} PRIVATE OSS_BUILDING_LIBRARY)
  target_include_directories(osse_${folder} PUBLIC
    ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/include ${PROJECT_SOURCE_DIR}/core)
  target_compile_options(osse_${folder} PRIVATE -fno-exceptions -fno-rtti)
  target_link_libraries(osse_${folder} PRIVATE osse_warnings)
  set_property(GLOBAL APPEND PROPERTY OSSE_FAMILIES osse_${folder})
endfunction()

# osse_use_library(<program> PRODUCT|OBJECTS)
#
# Links a test, fuzzer or benchmark with the library: as the DLL that is shipped, or as its objects,
# which shows the program what the DLL keeps to itself. Programs lie beside the DLL.
set(OSSE_SYSTEM_LIBRARIES $<$<BOOL:${WIN32}>:advapi32>)
function(osse_use_library program form)
  if(form STREQUAL "PRODUCT")
    target_link_libraries(${program} PRIVATE osse)
  elseif(form STREQUAL "OBJECTS")
    get_property(families GLOBAL PROPERTY OSSE_FAMILIES)
    target_compile_definitions(${program} PRIVATE OSS_STATIC)
    target_link_libraries(${program} PRIVATE ${families} ${OSSE_SYSTEM_LIBRARIES})
  else()
    message(FATAL_ERROR "${program}: PRODUCT or OBJECTS, not ${form}")
  endif()
  target_link_libraries(${program} PRIVATE osse_warnings)
  set_target_properties(${program} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/bin)
endfunction()
