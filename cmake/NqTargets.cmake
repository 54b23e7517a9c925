# Flags that all targets share, and the shape of an addon.

# Warnings, floats, sanitizers.
function(nq_configure target)
  target_include_directories(${target} PUBLIC "${CMAKE_SOURCE_DIR}"
                                              "${CMAKE_SOURCE_DIR}/js-binding/include")
  # Fused multiply-adds would change results; every operation rounds on its own. The host is built
  # without RTTI, and classes with and without it don't mix, so nothing here has it.
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Werror -ffp-contract=off
                                           -fno-rtti)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    target_compile_options(${target} PRIVATE -Wthread-safety)
  endif()
  if(NQ_SANITIZE STREQUAL "address")
    target_compile_options(${target} PRIVATE -fsanitize=address,undefined
        -fno-sanitize-recover=undefined -fno-omit-frame-pointer -g -O1)
    target_link_options(${target} PUBLIC -fsanitize=address,undefined)
  elseif(NQ_SANITIZE STREQUAL "thread")
    # The three memory functions stay calls, so that VisibleMemoryFunctions.cpp answers them.
    target_compile_options(${target} PRIVATE -fsanitize=thread -fno-omit-frame-pointer -g -O1
        -fno-builtin-memcpy -fno-builtin-memmove -fno-builtin-memset)
    target_link_options(${target} PUBLIC -fsanitize=thread)
  endif()
endfunction()

# Checks of the stack and of calls of the C library, in release builds: the sanitizers have their own,
# and the second needs an optimising compiler. Some compilers predefine its macro.
function(nq_harden target)
  if(NOT NQ_SANITIZE)
    target_compile_options(${target} PRIVATE
        $<$<CONFIG:Release>:-fstack-protector-strong>
        $<$<CONFIG:Release>:-U_FORTIFY_SOURCE>
        $<$<CONFIG:Release>:-D_FORTIFY_SOURCE=2>)
  endif()
endfunction()

# The host's headers, as system headers: their warnings are theirs.
function(nq_use_host target)
  target_include_directories(${target} SYSTEM PRIVATE "${NQ_NODE_DIR}/include/node")
endfunction()

# nq_add_binding(name sources...): the wrappers, as objects.
function(nq_add_binding name)
  add_library(${name} OBJECT ${ARGN})
  nq_configure(${name})
  nq_harden(${name})
  nq_use_host(${name})
endfunction()

# nq_add_addon(name binding versionScript sources...): NAME.node at the top of the build folder, over
# the wrappers of BINDING. The version script names what is exported. The host unloads an addon when
# the last worker thread that loaded it ends, while pool threads still run in it, hence nodelete. All
# symbols are bound at loading, so that the tables of addresses are read-only from then on.
function(nq_add_addon name binding versionScript)
  add_library(${name} MODULE ${ARGN})
  nq_configure(${name})
  nq_harden(${name})
  nq_use_host(${name})
  target_link_libraries(${name} PRIVATE ${binding} nq_core)
  target_link_options(${name} PRIVATE
      "-Wl,--version-script=${CMAKE_SOURCE_DIR}/${versionScript}" -Wl,-z,nodelete
      -Wl,-z,relro -Wl,-z,now)
  set_target_properties(${name} PROPERTIES
      PREFIX "" SUFFIX ".node"
      LINK_DEPENDS "${CMAKE_SOURCE_DIR}/${versionScript}"
      LIBRARY_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}")
endfunction()
