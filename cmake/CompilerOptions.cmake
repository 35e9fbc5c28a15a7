# The options that every target of this tree is compiled with: link `kiosk_options` to get them.

add_library(kiosk_options INTERFACE)

# Warnings are errors for the compilers that judge a change. A newer one finds new things to say, and
# says them without keeping anybody from building the tree on a newer system.
set(werror_default OFF)
if((CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION MATCHES "^12[.]")
    OR (CMAKE_CXX_COMPILER_ID STREQUAL "Clang" AND CMAKE_CXX_COMPILER_VERSION MATCHES "^14[.]"))
  set(werror_default ON)
endif()
option(KIOSK_WERROR "Warnings are errors" ${werror_default})
if(KIOSK_WERROR)
  target_compile_options(kiosk_options INTERFACE -Werror)
endif()

target_compile_options(kiosk_options INTERFACE
  -Wall -Wextra -Wpedantic
  -Wshadow -Wconversion -Wsign-conversion -Wold-style-cast -Wuseless-cast
  -Wnon-virtual-dtor -Woverloaded-virtual -Wcast-align -Wcast-qual -Wformat=2
  -Wmissing-declarations -Wimplicit-fallthrough -Wunused -Wundef
  -Wdouble-promotion -Wextra-semi)

if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  # The lock discipline: what GUARDED_BY, REQUIRES and the order in core/locks.h say is proven here.
  target_compile_options(kiosk_options INTERFACE
    -Wno-unknown-warning-option
    -Wthread-safety -Wthread-safety-beta -Werror=thread-safety -Werror=thread-safety-beta)
else()
  target_compile_options(kiosk_options INTERFACE
    -Wduplicated-cond -Wduplicated-branches -Wlogical-op)
endif()

if(KIOSK_SANITIZE)
  target_compile_options(kiosk_options INTERFACE
    -fsanitize=${KIOSK_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(kiosk_options INTERFACE -fsanitize=${KIOSK_SANITIZE})
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # Instrumented code is not what these two were made to judge; the other builds judge it.
    target_compile_options(kiosk_options INTERFACE
      -Wno-maybe-uninitialized -Wno-mismatched-new-delete)
  endif()
else()
  # What Debian builds its own packages with, and full RELRO and PIE besides.
  target_compile_options(kiosk_options INTERFACE -fstack-protector-strong -fstack-clash-protection)
  if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|i.86)$")
    target_compile_options(kiosk_options INTERFACE -fcf-protection)
  elseif(CMAKE_SYSTEM_PROCESSOR STREQUAL "aarch64")
    target_compile_options(kiosk_options INTERFACE -mbranch-protection=standard)
  endif()
  target_compile_definitions(kiosk_options INTERFACE
    $<$<NOT:$<CONFIG:Debug>>:_FORTIFY_SOURCE=2> _GLIBCXX_ASSERTIONS)
  target_link_options(kiosk_options INTERFACE
    -Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack
    $<$<STREQUAL:$<TARGET_PROPERTY:TYPE>,EXECUTABLE>:-pie>)
endif()

if(KIOSK_COVERAGE)
  target_link_options(kiosk_options INTERFACE --coverage)
endif()

# The same sources give the same bytes, wherever they were built.
target_compile_options(kiosk_options INTERFACE
  -ffile-prefix-map=${PROJECT_SOURCE_DIR}=. -ffile-prefix-map=${PROJECT_BINARY_DIR}=build)
