const list = [1, 2;
