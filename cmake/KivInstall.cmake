# Placeholder until install rules land.
