# Where things go when they are installed. What names no component belongs to the camera's package.
include(GNUInstallDirs)
set(CMAKE_INSTALL_DEFAULT_COMPONENT_NAME camera)
# Folders that packages would otherwise get from the umask of whoever builds them.
set(CMAKE_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

set(PAVO_INSTALL_DOCDIR ${CMAKE_INSTALL_DATAROOTDIR}/doc/pavo-camera)
set(PAVO_INSTALL_FOLDER ${CMAKE_INSTALL_LIBDIR}/pavo-camera)
set(PAVO_INSTALL_BUNDLE ${PAVO_INSTALL_FOLDER}/CMIOExtensionSupport.bundle)
# The command finds the bundle from where it is itself, so that both can be moved together.
file(RELATIVE_PATH PAVO_BUNDLE_FROM_COMMAND
  ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR}/pavo-camera/CMIOExtensionSupport.bundle)
