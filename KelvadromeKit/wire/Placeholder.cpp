namespace kelvadrome {}
