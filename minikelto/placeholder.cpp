namespace minikelto {}
