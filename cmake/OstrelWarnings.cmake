# Common settings for every target of the project.

# ostrel_library_settings(target): C++11, warnings on, errors in CI.
function(ostrel_library_settings target)
  set_target_properties(${target} PROPERTIES CXX_STANDARD 11 CXX_STANDARD_REQUIRED ON
                                             CXX_EXTENSIONS OFF)
  ostrel_warnings(${target})
endfunction()

# ostrel_layer_settings(target): a layer of the core library. Hidden
# visibility: only what carries OSTREL_EXPORT is part of the core's binary
# interface. Calls inside the library to its own exported functions bind
# directly and may be inlined: nothing is meant to interpose them.
function(ostrel_layer_settings target)
  ostrel_library_settings(${target})
  set_target_properties(${target} PROPERTIES CXX_VISIBILITY_PRESET hidden
                                             VISIBILITY_INLINES_HIDDEN ON)
  target_compile_options(${target} PRIVATE -fno-semantic-interposition)
endfunction()

# ostrel_tool_settings(target): tools, tests and benchmarks may use C++17.
function(ostrel_tool_settings target)
  set_target_properties(${target} PROPERTIES CXX_STANDARD 17 CXX_STANDARD_REQUIRED ON
                                             CXX_EXTENSIONS OFF)
  ostrel_warnings(${target})
endfunction()

function(ostrel_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra)
  if(OSTREL_WERROR)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
endfunction()
