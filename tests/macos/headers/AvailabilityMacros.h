// A stand-in: README.md.
#pragma once
