# Compiler flags of all targets, and the definition of an addon.

# Warnings, floating-point contraction, sanitizers.
function(nq_configure target)
  target_include_directories(${target} PUBLIC "${CMAKE_SOURCE_DIR}"
                                              "${CMAKE_SOURCE_DIR}/js-binding/include")
  # Fused multiply-adds would change results; every operation must round on its own. The host is
  # built without RTTI, and classes with and without it don't mix, so it is off here.
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Werror -ffp-contract=off
                                           -fno-rtti)
  if(NQ_PORTABLE)
    target_compile_definitions(${target} PRIVATE NQ_PORTABLE)
  endif()
  if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    target_compile_options(${target} PRIVATE -Wthread-safety)
  endif()
  # Sanitizers report lines of code, and need no more debug information than that.
  if(NQ_SANITIZE STREQUAL "address")
    target_compile_options(${target} PRIVATE -fsanitize=address,undefined
        -fno-sanitize-recover=undefined -fno-omit-frame-pointer -g1 -O1)
    target_link_options(${target} PUBLIC -fsanitize=address,undefined)
  elseif(NQ_SANITIZE STREQUAL "thread")
    # Not as builtins: calls to the three memory functions reach VisibleMemoryFunctions.cpp.
    target_compile_options(${target} PRIVATE -fsanitize=thread -fno-omit-frame-pointer -g1 -O1
        -fno-builtin-memcpy -fno-builtin-memmove -fno-builtin-memset)
    target_link_options(${target} PUBLIC -fsanitize=thread)
  endif()
endfunction()

# Stack protection and _FORTIFY_SOURCE checks of C library calls, in release builds: sanitizers have
# their own, and the second needs an optimising compiler. Some compilers predefine its macro.
function(nq_harden target)
  if(NOT NQ_SANITIZE AND NOT NQ_WASM)
    target_compile_options(${target} PRIVATE
        $<$<CONFIG:Release>:-fstack-protector-strong>
        $<$<CONFIG:Release>:-U_FORTIFY_SOURCE>
        $<$<CONFIG:Release>:-D_FORTIFY_SOURCE=2>)
  endif()
endfunction()

# nq_read_host(folder): reads a host's headers, in FOLDER/include/node, and sets in the caller
#   NQ_HOST_ABI        its module ABI, as in the name of the module's entry
#   NQ_HOST_STANDARD   the C++ standard that its headers need
function(nq_read_host folder)
  set(include "${folder}/include/node")
  if(NOT EXISTS "${include}/node_version.h" OR NOT EXISTS "${include}/v8-version.h")
    message(FATAL_ERROR "No host headers in ${include}. Node 12 comes with 'npm ci --ignore-scripts', "
                        "other hosts with 'npm run hosts'.")
  endif()
  file(STRINGS "${include}/node_version.h" line REGEX "^#define NODE_MODULE_VERSION [0-9]+")
  string(REGEX REPLACE ".* ([0-9]+).*" "\\1" abi "${line}")
  file(STRINGS "${include}/v8-version.h" line REGEX "^#define V8_MAJOR_VERSION [0-9]+")
  string(REGEX REPLACE ".* ([0-9]+).*" "\\1" v8 "${line}")
  set(standard 17)
  if(v8 GREATER_EQUAL 13)
    set(standard 20)
  endif()
  set(NQ_HOST_ABI "${abi}" PARENT_SCOPE)
  set(NQ_HOST_STANDARD "${standard}" PARENT_SCOPE)
endfunction()

# The headers of the host in FOLDER, as system headers: their warnings are suppressed.
function(nq_use_host target folder)
  target_include_directories(${target} SYSTEM PRIVATE "${folder}/include/node")
  nq_read_host("${folder}")
  set_target_properties(${target} PROPERTIES CXX_STANDARD ${NQ_HOST_STANDARD})
endfunction()

# nq_add_binding(name folder sources...): the wrappers for the host in FOLDER, as objects.
function(nq_add_binding name folder)
  add_library(${name} OBJECT ${ARGN})
  nq_configure(${name})
  nq_harden(${name})
  nq_use_host(${name} "${folder}")
endfunction()

# nq_add_addon(name base folder bindings output sources...): target NAME, the file BASE.node in
# folder OUTPUT, for the host in FOLDER, with the objects of the targets BINDINGS. It exports only what the host
# looks up: the entry, and on Node 12 (ABI 72) the static constructor _register_BASE_, where BASE is
# the one in the sources. The host unloads an addon when the last worker thread that loaded it ends,
# while pool threads still run in it, hence nodelete. All symbols are bound at load time, so that
# the tables of addresses are read-only from then on.
function(nq_add_addon name base folder bindings output)
  add_library(${name} MODULE ${ARGN})
  nq_configure(${name})
  nq_harden(${name})
  nq_use_host(${name} "${folder}")
  target_link_libraries(${name} PRIVATE ${bindings} nq_core)
  nq_read_host("${folder}")
  set(NQ_EXPORTS "node_register_module_v${NQ_HOST_ABI};")
  if(NQ_HOST_ABI EQUAL 72)
    string(PREPEND NQ_EXPORTS "_register_*; ")
  endif()
  set(versionScript "${CMAKE_BINARY_DIR}/${name}.map")
  configure_file("${CMAKE_SOURCE_DIR}/cmake/exports.map.in" "${versionScript}" @ONLY)
  target_link_options(${name} PRIVATE "-Wl,--version-script=${versionScript}" -Wl,-z,nodelete
                                      -Wl,-z,relro -Wl,-z,now)
  set_target_properties(${name} PROPERTIES
      PREFIX "" OUTPUT_NAME "${base}" SUFFIX ".node"
      LINK_DEPENDS "${versionScript}"
      LIBRARY_OUTPUT_DIRECTORY "${output}")
endfunction()

# nq_add_host(suffix folder output): all targets for the host in FOLDER, built into folder OUTPUT:
# the module, its variant that exposes command buffers to JavaScript, and the test addon. Target
# names end in SUFFIX.
function(nq_add_host suffix folder output)
  file(GLOB_RECURSE wrapperSources CONFIGURE_DEPENDS BindingTemp/*.cpp)
  # What JavaScript can reach differs between the two modules; the other wrappers are the same.
  set(surfaceSources "${CMAKE_SOURCE_DIR}/BindingTemp/BindingEngine.cpp"
                     "${CMAKE_SOURCE_DIR}/BindingTemp/RegisterClasses.cpp")
  list(REMOVE_ITEM wrapperSources ${surfaceSources})
  nq_add_binding(nq_wrappers${suffix} "${folder}" ${wrapperSources})
  nq_add_binding(nq_surface${suffix} "${folder}" ${surfaceSources})
  set(bindings nq_wrappers${suffix} nq_surface${suffix})
  nq_add_addon(nq_logic${suffix} nq_logic "${folder}" "${bindings}" "${output}" nq_logic.cpp)
  if(NQ_SCRIPT_MATRIXFLOW)
    nq_add_binding(nq_surface_matrixflow${suffix} "${folder}" ${surfaceSources})
    target_compile_definitions(nq_surface_matrixflow${suffix} PRIVATE NQ_SCRIPT_MATRIXFLOW)
    nq_add_addon(nq_logic_matrixflow${suffix} nq_logic_matrixflow "${folder}"
                 "nq_wrappers${suffix};nq_surface_matrixflow${suffix}" "${output}" nq_logic.cpp)
  endif()
  if(NQ_BUILD_TESTS)
    file(GLOB_RECURSE addonSources CONFIGURE_DEPENDS tests/addon/*.cpp)
    nq_add_addon(nq_test_addon${suffix} nq_test_addon "${folder}" "${bindings}" "${output}"
                 ${addonSources})
  endif()
endfunction()
