"""What script/docs generates from: the service by introspection, and published/methods.toml."""
