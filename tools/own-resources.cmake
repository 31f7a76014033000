# tarn compiles its own resources.
#
# A native build makes a helper tool, tarn-msgtable (the message catalogue
# as MESSAGETABLE data). The Windows build makes a native build of tarn and
# the tool in native-tools/, compiles tools/resources/*.rc.in with that tarn
# straight into COFF objects, and links them into tarn64.dll (version and
# message tables) and tarn.exe (version). Included at the end of the
# top-level list, after the targets it adds to.

if(NOT CMAKE_CROSSCOMPILING)
  add_executable(tarn-msgtable ${PROJECT_SOURCE_DIR}/tools/msgtable.cpp
                               ${PROJECT_SOURCE_DIR}/src/diag/catalogue.cpp)
  target_include_directories(tarn-msgtable PRIVATE ${PROJECT_SOURCE_DIR}/src)
endif()

if(WIN32)
  set(own_default ON)
else()
  set(own_default OFF)
endif()
option(TARN_OWN_RESOURCES "Compile tarn's own resources into the Windows build" ${own_default})
if(NOT (WIN32 AND TARN_OWN_RESOURCES))
  return()
endif()

set(TARN_NATIVE_BUILD "" CACHE PATH
    "A native build of tarn whose tarn and tools to use; one is made in native-tools/ if empty")
set(native_dir ${CMAKE_BINARY_DIR}/native-tools)
if(TARN_NATIVE_BUILD)
  set(native_dir ${TARN_NATIVE_BUILD})
endif()
set(exe "")
if(CMAKE_HOST_WIN32)
  set(exe .exe)
endif()
set(native_tarn ${native_dir}/tarn${exe})
set(msgtable ${native_dir}/tarn-msgtable${exe})
# The objects' machine is the target's.
if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(i.86|x86|X86)$")
  set(machine x86)
elseif(CMAKE_SYSTEM_PROCESSOR MATCHES "^(aarch64|arm64|ARM64)$")
  set(machine arm64)
else()
  set(machine x64)
endif()

# The native build sees no toolchain file, so it builds for the host; a
# given native build is brought up to date the same way.
include(ExternalProject)
set(native_configure "")
if(TARN_NATIVE_BUILD)
  set(native_configure CONFIGURE_COMMAND ${CMAKE_COMMAND} -E true) # keep its configuration
endif()
ExternalProject_Add(native_tools
  SOURCE_DIR ${PROJECT_SOURCE_DIR}
  BINARY_DIR ${native_dir}
  CMAKE_GENERATOR ${CMAKE_GENERATOR}
  CMAKE_ARGS -DCMAKE_BUILD_TYPE=Release -DTARN_TESTS=OFF -DTARN_OWN_RESOURCES=OFF
  ${native_configure}
  BUILD_COMMAND ${CMAKE_COMMAND} --build ${native_dir} --target tarn tarn-msgtable
  INSTALL_COMMAND ""
  BUILD_ALWAYS ON
  BUILD_BYPRODUCTS ${native_tarn} ${msgtable})

set(gen ${CMAKE_BINARY_DIR}/own-resources)
file(MAKE_DIRECTORY ${gen})
configure_file(${PROJECT_SOURCE_DIR}/tools/resources/tarn64.rc.in ${gen}/tarn64.rc @ONLY)
configure_file(${PROJECT_SOURCE_DIR}/tools/resources/tarn.rc.in ${gen}/tarn.rc @ONLY)

foreach(language en sv)
  add_custom_command(OUTPUT ${gen}/messages_${language}.bin
    COMMAND ${msgtable} ${language} ${gen}/messages_${language}.bin
    DEPENDS ${msgtable} native_tools
    COMMENT "Message table (${language}) from the catalogue")
endforeach()

# The script's resources as an object linked into `target`.
function(tarn_own_resources target script)
  add_custom_command(OUTPUT ${gen}/${script}_res.obj
    COMMAND ${native_tarn} --format=coff --machine=${machine} -Fo${gen}/${script}_res.obj
            ${gen}/${script}.rc
    DEPENDS ${gen}/${script}.rc ${native_tarn} native_tools ${ARGN}
    WORKING_DIRECTORY ${gen}
    COMMENT "Compiling ${script}.rc with the native tarn")
  target_sources(${target} PRIVATE ${gen}/${script}_res.obj)
endfunction()

tarn_own_resources(tarn64 tarn64 ${gen}/messages_en.bin ${gen}/messages_sv.bin)
tarn_own_resources(tarn tarn)
if(TARN_TESTS)
  # The tests read the messages and the version from the built files.
  add_dependencies(tarn_tests tarn64 tarn)
endif()
