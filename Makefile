# The commands in front of the build. All work on a Debian 12 with nothing installed but make.

.PHONY: help demo test build package macos dependencies macos-dependencies clients-dependencies

help:
	@echo "make demo          build the camera and watch it work, in about two minutes"
	@echo "make test          build it and run every test"
	@echo "make build         build it into build/release"
	@echo "make package       make its Debian packages, in build/package/packages"
	@echo "make macos         build the macOS bundle into build/macos, and hold it against its contract"
	@echo "make dependencies  install the Debian packages that the others need"
	@echo "make clients-dependencies  install browsers and what else the tests open the camera with"

dependencies:
	@Tools/install-dependencies.sh

macos-dependencies:
	@Tools/install-dependencies.sh Tools/dependencies-macos.txt

# Applications that the tests have as clients where they are installed.
clients-dependencies:
	@Tools/install-dependencies.sh Tools/dependencies-clients.txt

build: dependencies
	cmake --preset release -DBUILD_TESTING=OFF
	cmake --build --preset release

# The time of the changelog goes into the packages, so that the same sources make the same packages.
package: dependencies
	cmake --preset package
	SOURCE_DATE_EPOCH=$$(dpkg-parsechangelog -l Packaging/debian/changelog -S Timestamp) \
		cmake --build --preset package

demo: build
	build/release/pavo demo --sheet build/demo/contact-sheet.png

test: dependencies
	cmake --preset debug
	cmake --build --preset debug
	ctest --preset debug

macos: dependencies macos-dependencies
	cmake --preset macos
	cmake --build --preset macos
	python3 MacOS/check/check.py build/macos
