# Checks of the device package against the platform it is built into (CTest label "device").
# Those that need no platform tree are hygiene gates (label "gate"); the others read a folder of the
# platform tree, named by a cache variable, and are skipped, with one line saying which variable
# to set, when it is empty:
#   AR_VENDOR_LIBRARIES    the platform's VNDK list (CATEGORY: lib.so lines); by default the CI
#                          copy, ../shared/platform-api30/vendor-libraries.txt beside the checkout
#   AR_PLATFORM_GOOGLETEST the platform tree's external/googletest
#   AR_PLATFORM_LIBVINTF   the platform tree's system/libvintf (its xsd/ schemas)
#   AR_PLATFORM_SEPOLICY   the platform tree's system/sepolicy (compiling takes 15-40 s: "slow")
get_filename_component(ar_ci_vendor_libraries
  ${PROJECT_SOURCE_DIR}/../shared/platform-api30/vendor-libraries.txt ABSOLUTE)
if(NOT EXISTS ${ar_ci_vendor_libraries})
  set(ar_ci_vendor_libraries "")
endif()
set(AR_VENDOR_LIBRARIES "${ar_ci_vendor_libraries}" CACHE FILEPATH
    "Libraries that vendor modules may link (the platform's VNDK list)")
set(AR_PLATFORM_GOOGLETEST "" CACHE PATH "A platform tree's external/googletest")
set(AR_PLATFORM_LIBVINTF "" CACHE PATH "A platform tree's system/libvintf")
set(AR_PLATFORM_SEPOLICY "" CACHE PATH "A platform tree's system/sepolicy")

set(AR_SCRIPTS ${PROJECT_SOURCE_DIR}/scripts)

# ar_device_check(NAME LABELS [NEEDS VARIABLE] COMMAND ...): a check; with NEEDS, one that is
# skipped while VARIABLE is empty.
function(ar_device_check name labels)
  cmake_parse_arguments(PARSE_ARGV 2 arg "" "NEEDS" "COMMAND")
  if(arg_NEEDS AND "${${arg_NEEDS}}" STREQUAL "")
    # (No semicolon in these words: CMake would split them.)
    set(arg_COMMAND sh -c "echo \"$1\" && exit 77" sh
        "skipped: ${arg_NEEDS} is empty, configure with -D${arg_NEEDS}=PATH to run this check")
  endif()
  add_test(NAME ${name} COMMAND ${arg_COMMAND})
  set_tests_properties(${name} PROPERTIES LABELS "device;${labels}" SKIP_RETURN_CODE 77
                       TIMEOUT 300)
endfunction()

# Vendor modules link only what the platform lets vendor code link.
ar_device_check(blueprint_links gate NEEDS AR_VENDOR_LIBRARIES
  COMMAND ${AR_SCRIPTS}/check-blueprints.sh links ${AR_VENDOR_LIBRARIES})
ar_device_check(blueprint_links_refusal gate NEEDS AR_VENDOR_LIBRARIES
  COMMAND ${AR_SCRIPTS}/test-device-checks.sh links ${AR_VENDOR_LIBRARIES})

# The conformance test compiles against a googletest older than the host's.
ar_device_check(vts_googletest_without_newer_macros gate
  COMMAND ${AR_SCRIPTS}/check-vts-googletest.sh ${CMAKE_BINARY_DIR})
ar_device_check(vts_googletest_platform gate NEEDS AR_PLATFORM_GOOGLETEST
  COMMAND ${AR_SCRIPTS}/check-vts-googletest.sh ${CMAKE_BINARY_DIR} ${AR_PLATFORM_GOOGLETEST})

# The VINTF declarations agree with each other and with the package.
ar_device_check(vintf_consistency gate COMMAND ${AR_SCRIPTS}/check-vintf.py)
ar_device_check(vintf_consistency_refusal gate COMMAND ${AR_SCRIPTS}/test-device-checks.sh vintf)
ar_device_check(vintf_schemas gate NEEDS AR_PLATFORM_LIBVINTF
  COMMAND ${AR_SCRIPTS}/check-vintf.py --schemas ${AR_PLATFORM_LIBVINTF})

# The vendor policy compiles with the platform's, and a planted neverallow violation fails.
ar_device_check(sepolicy slow NEEDS AR_PLATFORM_SEPOLICY
  COMMAND ${AR_SCRIPTS}/check-sepolicy.sh ${AR_PLATFORM_SEPOLICY})
ar_device_check(sepolicy_planted_violation slow NEEDS AR_PLATFORM_SEPOLICY
  COMMAND ${AR_SCRIPTS}/test-device-checks.sh sepolicy ${AR_PLATFORM_SEPOLICY})
