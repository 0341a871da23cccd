# Everything that a product needs for kelp. In the product's makefile:
#
#     $(call inherit-product, vendor/kelp/android/kelp.mk)
#
# docs/device.md lists what the device adds: one line in its ueventd.rc, and the SELinux domains of
# the peer daemons.

KELP_ANDROID_DIR := $(patsubst %/,%,$(dir $(lastword $(MAKEFILE_LIST))))

PRODUCT_PACKAGES += kelp

# Board variables: use += in BoardConfig.mk, because := there would drop these lines.
BOARD_VENDOR_SEPOLICY_DIRS += $(KELP_ANDROID_DIR)/sepolicy
TARGET_FS_CONFIG_GEN += $(KELP_ANDROID_DIR)/config.fs
