# The iSCSI platform (`/iscsi`): libiscsi where pkg-config finds it (Debian:
# libiscsi-dev), else a stand-in that answers `/iscsi` with "this build has
# no iSCSI support". Windows builds always take their own stand-in, which
# tells how to reach an iSCSI drive there (MinGW has no libiscsi).
# -DBFTDTEST_ISCSI=OFF builds the stand-in on purpose.
#
# A static link takes libiscsi.a and the archives of what Debian builds it
# with: its iSER transport needs librdmacm.a and libibverbs.a (Debian:
# librdmacm-dev, libibverbs-dev), which need libnl-route-3.a and libnl-3.a
# (libnl-route-3-dev, libnl-3-dev). Without them all the static program has
# no iSCSI support. The linker then warns that getaddrinfo needs glibc's
# shared name service modules at run time: a static program reaches portals
# given as addresses anywhere, portals given as host names only where the
# glibc it was built with is installed.
option(BFTDTEST_ISCSI "Reach drives over iSCSI with libiscsi when found" ON)
set(BFTDTEST_ISCSI_LIBRARIES "")
if(WIN32)
  target_sources(bftdtest_lib PRIVATE ${CMAKE_CURRENT_SOURCE_DIR}/transport/platform/platform_iscsi_win32.cc)
  message(STATUS "iSCSI: not in Windows builds (the Microsoft iSCSI Initiator presents iSCSI drives as local ones)")
else()
  if(BFTDTEST_ISCSI AND BFTDTEST_LINK_STATIC)
    find_path(BFTDTEST_ISCSI_INCLUDE iscsi/iscsi.h)
    set(BFTDTEST_ISCSI_LIBRARIES ${BFTDTEST_ISCSI_INCLUDE})
    foreach(archive iscsi rdmacm ibverbs nl-route-3 nl-3)
      find_library(BFTDTEST_ISCSI_ARCHIVE_${archive} NAMES lib${archive}.a)
      if(NOT BFTDTEST_ISCSI_ARCHIVE_${archive})
        message(STATUS "iSCSI: off in this static build (no lib${archive}.a; Debian: librdmacm-dev libibverbs-dev)")
        set(BFTDTEST_ISCSI_LIBRARIES "")
        break()
      endif()
      list(APPEND BFTDTEST_ISCSI_LIBRARIES ${BFTDTEST_ISCSI_ARCHIVE_${archive}})
    endforeach()
    if(BFTDTEST_ISCSI_LIBRARIES)
      list(POP_FRONT BFTDTEST_ISCSI_LIBRARIES)  # the include directory
      target_include_directories(bftdtest_lib PRIVATE ${BFTDTEST_ISCSI_INCLUDE})
    endif()
  elseif(BFTDTEST_ISCSI)
    find_package(PkgConfig QUIET)
    if(PkgConfig_FOUND AND NOT CMAKE_CROSSCOMPILING)
      pkg_check_modules(BFTDTEST_LIBISCSI QUIET IMPORTED_TARGET libiscsi)
    endif()
    if(BFTDTEST_LIBISCSI_FOUND)
      set(BFTDTEST_ISCSI_LIBRARIES PkgConfig::BFTDTEST_LIBISCSI)
    else()
      message(STATUS "iSCSI: off (pkg-config finds no libiscsi; Debian: libiscsi-dev)")
    endif()
  endif()
  if(BFTDTEST_ISCSI_LIBRARIES)
    target_sources(bftdtest_lib PRIVATE ${CMAKE_CURRENT_SOURCE_DIR}/transport/platform/platform_iscsi.cc
                                ${CMAKE_CURRENT_SOURCE_DIR}/transport/platform/libiscsi_session.cc)
    target_link_libraries(bftdtest_lib PUBLIC ${BFTDTEST_ISCSI_LIBRARIES})
    message(STATUS "iSCSI: libiscsi")
  else()
    target_sources(bftdtest_lib PRIVATE ${CMAKE_CURRENT_SOURCE_DIR}/transport/platform/platform_iscsi_none.cc)
  endif()
endif()
