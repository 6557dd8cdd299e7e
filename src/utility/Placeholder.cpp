namespace kivml {}
