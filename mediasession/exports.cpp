// The shared library is the core archive linked whole; this unit only anchors the target.
