"""The pytest fixture `receiver`: a receiver of its own for each test. Override the other fixtures to change it."""

from __future__ import annotations

from typing import Any, Dict, Generator, List

import pytest

from .local import LocalReceiver


@pytest.fixture
def receiver_applications() -> List[str]:
    """The applications of the framework process: names or paths, as for `frame-host --application`."""
    return ["control"]


@pytest.fixture
def receiver_environment() -> Dict[str, str]:
    """Environment variables for all programs, such as TVSA_LOG."""
    return {}


@pytest.fixture
def receiver(
    receiver_applications: List[str], receiver_environment: Dict[str, str]
) -> Generator[LocalReceiver, None, None]:
    """A tvservice.local.LocalReceiver that is ready. The test fails when a program of it ends unexpectedly."""
    with LocalReceiver(receiver_applications, receiver_environment) as started:
        yield started


@pytest.hookimpl(hookwrapper=True)  # type: ignore[misc]
def pytest_runtest_makereport(item: Any) -> Generator[None, Any, None]:
    """Adds the logs of the receiver's programs to the report of a failed test."""
    outcome = yield
    report = outcome.get_result()
    used = getattr(item, "funcargs", {}).get("receiver")
    if report.when == "call" and report.failed and isinstance(used, LocalReceiver):
        report.sections.append(("logs of the receiver", used.log_tails()))
