# Builds dmd in the platform tree of Android 5.1 to 8.1, for which Android.bp is too new. From 9 on it builds nothing.
# Releases 7 to 8.1 read both files: delete Android.bp there. See docs/porting.md.
#
# The compilers and the C++ library of Android 5.1 to 7.1 are too old for C++17. So the product names others in its
# BoardConfig.mk, with absolute paths:
#     DMD_CXX            a clang++, release 5 or later, that compiles for the phone's processor
#     DMD_CXX_INCLUDE    the folder with the headers of its libc++
#     DMD_CXX_LIBRARIES  the static libraries of its libc++ for the phone's processor. dmd takes little from them, but
#                        must not take it from the phone, whose libc++ is older
# An NDK that still builds for API level 21 has all three below toolchains/llvm/prebuilt/linux-x86_64:
#     bin/clang++
#     sysroot/usr/include/c++/v1
#     sysroot/usr/lib/arm-linux-androideabi/ with libc++_static.a and libc++abi.a, in this order
# The headers of the C library, liblog and libcutils are still those of the tree. No tree has built dmd this way yet. If
# the tree's own tools fail to link it, build it with CMake and the whole NDK instead.
#
# If the tree's liblog has no exception log, the product sets DMD_NO_EXCEPTION_LOG := true.

ifneq ($(filter 21 22 23 24 25 26 27,$(PLATFORM_SDK_VERSION)),)

LOCAL_PATH := $(call my-dir)

# The folders of CMakeLists.txt, without platform/desk.
dmd_folders := daemon clients config servers triggers output actions tar
dmd_sources := $(patsubst $(LOCAL_PATH)/%,%,$(wildcard $(dmd_folders:%=$(LOCAL_PATH)/%/*.cpp)))
dmd_driver_check_sources := $(patsubst $(LOCAL_PATH)/%,%,$(wildcard $(LOCAL_PATH)/driver_check/*.cpp))
ifeq ($(DMD_NO_EXCEPTION_LOG),true)
dmd_sources += platform/android/exception_log.cpp
endif

include $(CLEAR_VARS)
LOCAL_MODULE := dmd
LOCAL_SRC_FILES := $(dmd_sources)
LOCAL_REQUIRED_MODULES := device_state_monitor.conf init.dmd.rc
include $(LOCAL_PATH)/platform/android/program.mk

# Tries the driver behind /dev/dsm. A product has it only if it names it, too:
# PRODUCT_PACKAGES_DEBUG += dmd-driver-check
# The client table names operations of the whole daemon.
include $(CLEAR_VARS)
LOCAL_MODULE := dmd-driver-check
LOCAL_SRC_FILES := $(dmd_driver_check_sources) $(filter-out daemon/main.cpp,$(dmd_sources))
include $(LOCAL_PATH)/platform/android/program.mk

# Becomes /system/etc/device_state_monitor.conf. Name a file with the error numbers of the phone's own drivers here.
include $(CLEAR_VARS)
LOCAL_MODULE := device_state_monitor.conf
LOCAL_MODULE_TAGS := optional
LOCAL_MODULE_CLASS := ETC
LOCAL_SRC_FILES := config/device_state_monitor.conf
include $(BUILD_PREBUILT)

# Becomes /init.dmd.rc, which the device's own init.*.rc imports.
include $(CLEAR_VARS)
LOCAL_MODULE := init.dmd.rc
LOCAL_MODULE_TAGS := optional
LOCAL_MODULE_CLASS := ETC
LOCAL_MODULE_PATH := $(TARGET_ROOT_OUT)
LOCAL_SRC_FILES := platform/android/5.1/init.dmd.rc
include $(BUILD_PREBUILT)

endif
