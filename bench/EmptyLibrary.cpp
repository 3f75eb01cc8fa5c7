// A library with the module's dependencies and nothing in it: what loading them alone costs.
