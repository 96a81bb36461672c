// The shared library is made of its static components; this unit only gives it a source.
