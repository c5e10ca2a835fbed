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

include $(CLEAR_VARS)
LOCAL_MODULE := dmd
LOCAL_MODULE_TAGS := optional
# The folders of CMakeLists.txt, without platform/desk.
dmd_folders := daemon clients config servers triggers output actions tar
LOCAL_SRC_FILES := $(patsubst $(LOCAL_PATH)/%,%,$(wildcard $(dmd_folders:%=$(LOCAL_PATH)/%/*.cpp)))
ifeq ($(DMD_NO_EXCEPTION_LOG),true)
LOCAL_SRC_FILES += platform/android/exception_log.cpp
endif
LOCAL_C_INCLUDES := $(LOCAL_PATH)
LOCAL_CFLAGS := -DDMD_ANDROID -Wall -Wextra -Wshadow -Wthread-safety -Werror
LOCAL_CPPFLAGS := -std=gnu++17 -fno-exceptions -fno-rtti
LOCAL_SHARED_LIBRARIES := libcutils liblog
LOCAL_CLANG := true
ifneq ($(DMD_CXX),)
LOCAL_CXX := $(DMD_CXX)
LOCAL_CXX_STL := none
LOCAL_CPPFLAGS += -nostdinc++ -isystem $(DMD_CXX_INCLUDE)
# The libraries need these to throw exceptions, although dmd throws none.
LOCAL_LDFLAGS := $(DMD_CXX_LIBRARIES) $(TARGET_LIBGCC)
LOCAL_SHARED_LIBRARIES += libdl
endif
# As wide as the kernel. Otherwise the driver would need a second entry, for the requests of narrower programs.
LOCAL_MULTILIB := first
LOCAL_REQUIRED_MODULES := device_state_monitor.conf init.dmd.rc
include $(BUILD_EXECUTABLE)

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
