# Stand-ins of what a platform tree's build gives an Android.mk: each module that it defines is printed, one variable a
# line. make -f platform.mk FILE=Android.mk

here := $(patsubst %/,%,$(dir $(lastword $(MAKEFILE_LIST))))
TARGET_ROOT_OUT := ROOT
TARGET_LIBGCC := LIBGCC
CLEAR_VARS := $(here)/clear_vars.mk
BUILD_EXECUTABLE := $(here)/module.mk
BUILD_PREBUILT := $(here)/module.mk
my-dir = $(patsubst %/,%,$(dir $(lastword $(MAKEFILE_LIST))))

# What Android 5.1 clears between two modules: it takes no notice of any other name.
names := LOCAL_MODULE LOCAL_MODULE_TAGS LOCAL_MODULE_CLASS LOCAL_MODULE_PATH LOCAL_SRC_FILES LOCAL_C_INCLUDES \
  LOCAL_CFLAGS LOCAL_CPPFLAGS LOCAL_LDFLAGS LOCAL_SHARED_LIBRARIES LOCAL_STATIC_LIBRARIES LOCAL_CLANG LOCAL_CC \
  LOCAL_CXX LOCAL_CXX_STL LOCAL_MULTILIB LOCAL_REQUIRED_MODULES

define print-module
$(foreach name,$(filter-out LOCAL_PATH,$(filter LOCAL_%,$(.VARIABLES))),\
  $(if $(filter $(name),$(names)),,$(error $(name) is no name that Android 5.1 knows))$(info $(name) $($(name))))
$(info LOCAL_END)
endef

include $(FILE)
all: ;
