# Checks of the source as tests of the build without sanitizers.
function(qarn_check name tool)
  find_program(found_${tool} ${tool})
  if(found_${tool})
    add_test(NAME ${name} COMMAND ${ARGN} WORKING_DIRECTORY ${CMAKE_SOURCE_DIR})
    set_tests_properties(${name} PROPERTIES LABELS source)
  endif()
endfunction()

qarn_check(format clang-format scripts/check-format)
qarn_check(tidy clang-tidy scripts/check-tidy ${CMAKE_BINARY_DIR})
qarn_check(includes python3 scripts/check-includes)
qarn_check(includes_self_check python3 scripts/check-includes --self-check)
qarn_check(headers bash scripts/check-headers ${CMAKE_CXX_COMPILER})
qarn_check(arm64 aarch64-linux-gnu-g++ scripts/check-arm64 ${CMAKE_BINARY_DIR}/qarn-sim)
qarn_check(mutations python3 scripts/mutate --check)
qarn_check(manual mandoc mandoc -Tlint -W warning doc/qarn.8 doc/qarn-sim.1)
qarn_check(documented python3 scripts/check-documented)
qarn_check(figures python3 bench/report.py --check)
qarn_check(simulator python3 scripts/check-simulator $<TARGET_FILE:qarn-sim>)
qarn_check(installed python3 scripts/check-installed ${CMAKE_BINARY_DIR})
qarn_check(cookbook python3 scripts/cookbook ${CMAKE_BINARY_DIR})
qarn_check(cppcheck cppcheck cppcheck --std=c++20 --enable=warning,performance,portability
  --inline-suppr --suppress=missingIncludeSystem --quiet --error-exitcode=1 -I.
  base transport textfile sdr fru sel lan firmware platform frontend sim)

# What leaves the project: the archive for rescue systems, which the whole-machine test uses, and the packages.
add_test(NAME archive COMMAND scripts/archive WORKING_DIRECTORY ${CMAKE_SOURCE_DIR})
set_tests_properties(archive PROPERTIES FIXTURES_SETUP archive PROCESSORS 2 LABELS packages)
qarn_check(reproducible dh scripts/check-reproducible)
if(found_dh)
  set_tests_properties(reproducible PROPERTIES FIXTURES_REQUIRED archive PROCESSORS 2 LABELS packages TIMEOUT 1500)
endif()
