include $(sort $(wildcard $(BR2_EXTERNAL_ZRMP4_PATH)/zrmp4/zrmp4.mk))
