# The user that kelp runs as. Any free number in 2900-2999 or 5000-5999 will do; the build rejects a
# used one.
[AID_VENDOR_KELP]
value: 2987
