# What is found on the system, in one place: the targets made here can be seen in every folder of
# this project, and not by a project that includes it.
find_package(Threads REQUIRED)
find_package(PkgConfig REQUIRED)

find_package(Boost 1.74 REQUIRED COMPONENTS system filesystem)
find_package(msgpack CONFIG REQUIRED)  # the target is called msgpackc-cxx
find_package(pugixml REQUIRED)
find_package(spdlog REQUIRED)
pkg_check_modules(OX_HWY REQUIRED IMPORTED_TARGET libhwy)
pkg_check_modules(OX_XXHASH REQUIRED IMPORTED_TARGET libxxhash)

if(OX_BUILD_APPS)
  find_package(CLI11 REQUIRED)
  find_package(fmt REQUIRED)
  find_package(nlohmann_json REQUIRED)
  find_package(PNG REQUIRED)
  pkg_check_modules(OX_FFMPEG REQUIRED IMPORTED_TARGET libavformat libavcodec libavutil libswscale
                    libavfilter libavdevice)
endif()

if(OX_BUILD_TESTS)
  find_package(GTest REQUIRED)
endif()
