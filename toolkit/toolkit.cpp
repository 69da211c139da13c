// toolkit.cpp - placeholder so the library exists before its first file lands.
