# What dmd and dmd-driver-check have in common; Android.mk includes it for each.

LOCAL_MODULE_TAGS := optional
LOCAL_C_INCLUDES := $(LOCAL_PATH)
LOCAL_CFLAGS := -DDMD_ANDROID -DDMD_VERSION=\"platform-tree\" -Wall -Wextra -Wshadow -Wthread-safety -Werror
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
include $(BUILD_EXECUTABLE)
