
tombstoneph8Ñ