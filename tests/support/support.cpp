// placeholder until the host fixture lands
