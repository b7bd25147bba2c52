# Adds lumxd, its shell client and their SELinux policy to a product. In the
# device's product makefile:
#   $(call inherit-product, <path to lumxd>/sepolicy/lumxd.mk)
# and append ueventd.lumx.rc to the device's vendor ueventd.rc.
LUMXD_SEPOLICY_DIR := $(patsubst %/,%,$(dir $(lastword $(MAKEFILE_LIST))))

PRODUCT_PACKAGES += \
    lumxd \
    lumx

SYSTEM_EXT_PRIVATE_SEPOLICY_DIRS += $(LUMXD_SEPOLICY_DIR)/private
