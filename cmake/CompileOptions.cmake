# What every target of ours is compiled with; `zaro_options(TARGET)` applies it.
set(CMAKE_CXX_STANDARD 17)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

find_program(ZAROPOLICY_CCACHE ccache)
if(ZAROPOLICY_CCACHE AND PROJECT_IS_TOP_LEVEL)
  set(CMAKE_CXX_COMPILER_LAUNCHER ${ZAROPOLICY_CCACHE})
endif()

if(ZAROPOLICY_SANITIZE)
  # Everything in the process, GoogleTest included.
  add_compile_options(-fsanitize=${ZAROPOLICY_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${ZAROPOLICY_SANITIZE})
endif()

# Which lines run is noted of our own code, not of the tests, so that these compile as ever.
if(ZAROPOLICY_COVERAGE)
  add_link_options(--coverage)
endif()
macro(zaro_note_coverage)
  if(ZAROPOLICY_COVERAGE)
    add_compile_options(--coverage -fprofile-update=atomic -fprofile-abs-path)
  endif()
endmacro()

if(ZAROPOLICY_BUILD_FUZZERS)
  # The engine has to see which branches of the library an input takes.
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()

# What makes a fault harder to exploit, in optimised builds of our own; tests/checks/check-hardening looks at the files.
# Distributions that bring flags of their own get them as well.
include(CheckCXXCompilerFlag)
include(CheckPIESupported)
check_pie_supported()
if(PROJECT_IS_TOP_LEVEL AND NOT ZAROPOLICY_SANITIZE)
  set(optimised "$<CONFIG:Release,RelWithDebInfo,MinSizeRel>")
  add_compile_options("$<${optimised}:-fstack-protector-strong;-fstack-clash-protection;-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=2>")
  check_cxx_compiler_flag(-fcf-protection ZAROPOLICY_HAS_CONTROL_FLOW_PROTECTION)
  if(ZAROPOLICY_HAS_CONTROL_FLOW_PROTECTION)
    add_compile_options("$<${optimised}:-fcf-protection>")
  endif()
  add_link_options("$<${optimised}:-Wl,-z,relro,-z,now>")
endif()

function(zaro_options target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wconversion -Wshadow
    $<$<BOOL:${ZAROPOLICY_WERROR}>:-Werror>)
endfunction()

# For a folder with the code that tests spend their time in, which sanitizers slow down several times. The programs and
# the tests themselves go without: that halves the time that they take to compile.
macro(zaro_optimise_if_sanitized)
  if(ZAROPOLICY_SANITIZE AND CMAKE_BUILD_TYPE STREQUAL Debug)
    add_compile_options(-O1)
  endif()
endmacro()
