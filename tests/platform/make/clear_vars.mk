$(foreach name,$(names),$(eval $(name) :=))
