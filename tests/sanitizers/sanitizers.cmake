# The environment of every test in a sanitizer build (ZORVIK_ASAN, ZORVIK_TSAN).
#
# Our executables (the dashboard, the tests, vantrel-sim, the probes) carry their sanitizer
# runtime themselves. Two of our shared objects are loaded by programs we do not build, and an
# instrumented object can only be loaded into a process whose first library is the runtime:
#  - libzorvik-cryptoki, by modutil and certutil (NSS), openvpn and pkcs11-tool. It keeps its
#    instrumentation, since inside those programs is where its bugs would show: the tests
#    reach those programs through PATH, and in a sanitizer build PATH starts with a folder of
#    wrappers that start the real program with the runtime preloaded.
#  - ifdzorvikphone (testbed/phone_reader), by pcscd. It is bench code, not program code, so it
#    is built without instrumentation (see its CMakeLists.txt) and pcscd runs untouched.
# The runtime is not preloaded everywhere: under it the bench's pcscd and python helpers stall
# for minutes, and their bugs are not ours to find.
# ctest applies this itself (TEST_INCLUDE_FILES below sets its environment before it starts
# the tests), so `ctest` by hand in a sanitizer build behaves like scripts/test. Options
# already in the caller's environment win.
if(ZORVIK_ASAN)
    set(zd_runtime libasan.so)
    set(zd_options
        "ASAN_OPTIONS=detect_leaks=0:abort_on_error=1"
        "UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1"
        # The sanitizer prints the stack; QtTest's own dump attaches gdb, which can stall.
        "QTEST_DISABLE_STACK_DUMP=1")
elseif(ZORVIK_TSAN)
    set(zd_runtime libtsan.so)
    set(zd_options
        "TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1:suppressions=${CMAKE_CURRENT_LIST_DIR}/tsan.supp"
        "QTEST_DISABLE_STACK_DUMP=1")
    # Debian's QtCore locks through futex calls TSan cannot see, so every queued signal and
    # posted event would look like a race; the tests run on Debian's own QtCore and QtNetwork
    # source built with TSan instead (scripts/qt-tsan), ahead of the system ones.
    set(ZORVIK_QT_TSAN_LIB "${CMAKE_SOURCE_DIR}/build-qt-tsan/lib" CACHE PATH
        "Folder with ThreadSanitizer builds of libQt5Core and libQt5Network (made by scripts/qt-tsan)")
    foreach(library libQt5Core.so.5 libQt5Network.so.5)
        if(NOT EXISTS "${ZORVIK_QT_TSAN_LIB}/${library}")
            message(FATAL_ERROR "No ThreadSanitizer ${library} in ${ZORVIK_QT_TSAN_LIB}: run scripts/qt-tsan")
        endif()
    endforeach()
    set(zd_library_path "${ZORVIK_QT_TSAN_LIB}")
else()
    return()
endif()

execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=${zd_runtime}
    OUTPUT_VARIABLE zd_runtime_path OUTPUT_STRIP_TRAILING_WHITESPACE)
get_filename_component(zd_runtime_path "${zd_runtime_path}" REALPATH)
if(NOT EXISTS "${zd_runtime_path}")
    message(FATAL_ERROR "${CMAKE_CXX_COMPILER} names no ${zd_runtime}")
endif()

set(zd_wrappers ${CMAKE_BINARY_DIR}/sanitizer-tools)
file(REMOVE_RECURSE ${zd_wrappers})
foreach(tool modutil certutil openvpn pkcs11-tool)
    find_program(zd_tool_${tool} ${tool} NO_CACHE)
    if(zd_tool_${tool})
        file(WRITE ${zd_wrappers}/${tool}
"#!/bin/sh
# ${tool} loads libzorvik-cryptoki, built with ${zd_runtime}.
LD_PRELOAD=\"${zd_runtime_path}\${LD_PRELOAD:+:\$LD_PRELOAD}\" exec \"${zd_tool_${tool}}\" \"$@\"
")
        file(CHMOD ${zd_wrappers}/${tool} PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ
            GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
    endif()
endforeach()

set(zd_env_script "set(ENV{PATH} \"${zd_wrappers}:\$ENV{PATH}\")\n")
if(zd_library_path)
    string(APPEND zd_env_script "set(ENV{LD_LIBRARY_PATH} \"${zd_library_path}:\$ENV{LD_LIBRARY_PATH}\")\n")
endif()
foreach(option IN LISTS zd_options)
    string(REGEX MATCH "^[A-Z_]+" name "${option}")
    string(REGEX REPLACE "^[A-Z_]+=" "" value "${option}")
    string(APPEND zd_env_script "if(NOT DEFINED ENV{${name}})\n    set(ENV{${name}} \"${value}\")\nendif()\n")
endforeach()
file(WRITE ${CMAKE_BINARY_DIR}/sanitizer_environment.cmake "${zd_env_script}")
set_property(DIRECTORY ${CMAKE_BINARY_DIR} APPEND PROPERTY TEST_INCLUDE_FILES
    ${CMAKE_BINARY_DIR}/sanitizer_environment.cmake)
