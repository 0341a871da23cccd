# The user that kelp runs as. Any number that the device leaves free in 2900-2999 or 5000-5999 will
# do; the build refuses one that is taken.
[AID_VENDOR_KELP]
value: 2987
