# SPDX-License-Identifier: BSD-3-Clause
include(GNUInstallDirs)
file(GLOB tesh_public_headers CONFIGURE_DEPENDS frame/tesh*.h)
install(TARGETS tesh tesh_static LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(FILES ${tesh_public_headers} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
# Found from the file itself, since `cmake --install --prefix` and a package may put the tree elsewhere.
file(RELATIVE_PATH tesh_pc_to_prefix ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" tesh_pc_to_prefix ${tesh_pc_to_prefix})
configure_file(cmake/tesh.pc.in tesh.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/tesh.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
