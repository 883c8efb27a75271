module example/venda

go 1.19
