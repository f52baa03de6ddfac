# What `ninja install` and the Debian packages install beside the programs.
file(STRINGS debian/changelog newest LIMIT_COUNT 1)
if(NOT newest MATCHES "^qarn \\(${PROJECT_VERSION}\\) ")
  message(FATAL_ERROR "debian/changelog has \"${newest}\", CMakeLists.txt version ${PROJECT_VERSION}")
endif()

set(documents ${CMAKE_INSTALL_DATADIR}/doc/qarn)
install(TARGETS qarn DESTINATION ${CMAKE_INSTALL_SBINDIR})
install(TARGETS qarn-sim qarn-bmc DESTINATION ${CMAKE_INSTALL_BINDIR})
install(FILES doc/qarn.8 DESTINATION ${CMAKE_INSTALL_MANDIR}/man8)
file(WRITE ${CMAKE_BINARY_DIR}/qarn-bmc.1 ".so man1/qarn-sim.1\n")
install(FILES doc/qarn-sim.1 ${CMAKE_BINARY_DIR}/qarn-bmc.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
install(FILES debian/qarn.bash-completion RENAME qarn
  DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
# The documents find each other and the samples as they do in the source.
install(DIRECTORY data/ DESTINATION ${CMAKE_INSTALL_DATADIR}/qarn)
install(FILES README.md CONTRIBUTING.md DESTINATION ${documents})
install(DIRECTORY doc/ DESTINATION ${documents}/documents)
file(CREATE_LINK documents ${CMAKE_BINARY_DIR}/doc SYMBOLIC)
file(CREATE_LINK ../../qarn ${CMAKE_BINARY_DIR}/data SYMBOLIC)
install(FILES ${CMAKE_BINARY_DIR}/doc ${CMAKE_BINARY_DIR}/data DESTINATION ${documents})
