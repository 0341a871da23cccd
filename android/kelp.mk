# Everything that a product needs for kelp. In the product's makefile:
#
#     $(call inherit-product, vendor/kelp/android/kelp.mk)
#
# docs/device.md tells what is left to the device: one line in its ueventd.rc, and which SELinux
# domains its peer daemons run in.

KELP_ANDROID_DIR := $(patsubst %/,%,$(dir $(lastword $(MAKEFILE_LIST))))

PRODUCT_PACKAGES += kelp

# Board variables, so += them in BoardConfig.mk: a := there would drop these lines.
BOARD_VENDOR_SEPOLICY_DIRS += $(KELP_ANDROID_DIR)/sepolicy
TARGET_FS_CONFIG_GEN += $(KELP_ANDROID_DIR)/config.fs
