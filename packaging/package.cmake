# What is installed beside the program, and the Debian package (built by scripts/package).
option(QARN_HARDEN "compile with the hardening that a distributed binary should have" OFF)
if(QARN_HARDEN)
  foreach(target qarn qarn_core)
    target_compile_options(${target} PRIVATE -fPIE -fstack-protector-strong
      -fstack-clash-protection -fcf-protection -D_FORTIFY_SOURCE=2)
  endforeach()
  target_link_options(qarn PRIVATE -pie -Wl,-z,relro -Wl,-z,now)
endif()

set(QARN_DOC_DIR ${CMAKE_INSTALL_DATADIR}/doc/qarn)

# Debian keeps manuals and changelogs compressed, without time stamps.
function(install_compressed source name destination)
  add_custom_command(OUTPUT ${CMAKE_BINARY_DIR}/${name}.gz
    COMMAND gzip -9nc ${CMAKE_SOURCE_DIR}/${source} > ${CMAKE_BINARY_DIR}/${name}.gz
    DEPENDS ${CMAKE_SOURCE_DIR}/${source} VERBATIM)
  add_custom_target(compressed_${name} ALL DEPENDS ${CMAKE_BINARY_DIR}/${name}.gz)
  install(FILES ${CMAKE_BINARY_DIR}/${name}.gz DESTINATION ${destination})
endfunction()

install(TARGETS qarn DESTINATION ${CMAKE_INSTALL_SBINDIR})
install(FILES data/util.dat DESTINATION ${CMAKE_INSTALL_DATADIR}/qarn OPTIONAL)
install_compressed(doc/qarn.8 qarn.8 ${CMAKE_INSTALL_MANDIR}/man8)
install_compressed(packaging/changelog changelog ${QARN_DOC_DIR})
file(GLOB documents CONFIGURE_DEPENDS doc/*.md doc/*.svg)
install(FILES README.md packaging/copyright DESTINATION ${QARN_DOC_DIR})
install(FILES ${documents} DESTINATION ${QARN_DOC_DIR}/doc)
install(FILES packaging/qarn.bash DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
  RENAME qarn)
install(FILES packaging/lintian-overrides DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides
  RENAME qarn)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_PACKAGE_CONTACT "qarn maintainers <maintainers@qarn.example>")
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SUGGESTS "ipmitool, srecord")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "maintain the management controller (BMC) of a server")
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
"qarn talks to the management controller of the server it runs on, through its
own driver for the KCS interface or through the kernel's IPMI device. It shows
and sets the LAN configuration, dumps and writes sensor data records and FRU
inventory as text, dumps the event log, sets user passwords, sends requests,
and updates, saves and verifies the firmware of ORBE C4410 and C4415 cards.")
include(CPack)
