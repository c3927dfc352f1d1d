"""information_collector's dashboard in a real browser.

The collector is filled with records stored before it starts (their facts are
taken on start), the records the demo host writes (sent by
information_uploader), a file upload, and records posted to it, the last one
hostile. Then the page must show the right totals per type, draw every chart
with data, show a record's JSON after a click, change its counts with each
filter, and keep the hostile texts as text. A screenshot goes to SCREENSHOT.

  python3 dashboard_browser_test.py BROWSER DRIVER COLLECTOR UPLOADER RECORDER SCREENSHOT
"""
import base64
import json
import os
import re
import shutil
import signal
import sqlite3
import subprocess
import sys
import tempfile
import threading
import time
import urllib.request
from contextlib import closing
from datetime import datetime, timedelta, timezone

from selenium import webdriver
from selenium.common.exceptions import TimeoutException
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.by import By
from selenium.webdriver.support.select import Select
from selenium.webdriver.support.wait import WebDriverWait

TEST_APP = '3c1f9a7e55d04b28a6e2f0b9d4c87a13'
RELEASE_APP = 'a94e07b3c2d851f6e0b7a4c39d2f6e58'
LISTENING = re.compile(r'listening on (http://127\.0\.0\.1:\d+)')


class Child:
    """A program whose standard output and error are collected while it runs."""

    def __init__(self, program, args, cwd):
        self.process = subprocess.Popen([program, *args], cwd=cwd, stdin=subprocess.DEVNULL,
                                        stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        self.chunks = []
        self.reader = threading.Thread(target=self._read, daemon=True)
        self.reader.start()

    def _read(self):
        for line in iter(self.process.stdout.readline, b''):
            self.chunks.append(line.decode(errors='replace'))

    @property
    def output(self):
        return ''.join(self.chunks)

    def ended(self, timeout=30):
        """The exit code, once the output is read to its end."""
        code = self.process.wait(timeout)
        self.reader.join(timeout)
        return code

    def stop(self):
        self.process.send_signal(signal.SIGTERM)
        return self.ended()


def wait_for(what, condition, timeout=20):
    end = time.monotonic() + timeout
    while not condition():
        if time.monotonic() > end:
            raise AssertionError(f'timed out waiting for {what}')
        time.sleep(0.05)


def generated(i):
    """A record as hosts send it, of every type, from several machines."""
    types = ['usage'] * 5 + ['scan', 'scan', 'calibration', 'score', 'feedback']
    kind = types[i % len(types)]
    body = {
        'modelName': ['scanner-a', 'scanner-b'][i % 2], 'softwareVer': ['1.4.2', '1.5.0', '2.0.0'][i % 3],
        'tracingType': kind,
        'osSoftExt': {'osName': ['Windows 10 Pro', 'Windows 11 Pro', 'Windows 11 Home'][i % 3],
                      'lang': ['en_US', 'de_DE', 'ja_JP', 'fr_FR'][i % 4],
                      'resolution': ['1920*1080', '2560*1440'][i % 2]},
        'osHdExt': {'cpu': [{'cpuCores': 8, 'cpuModel': ['AMD Ryzen 7 7700X', 'Intel(R) Core(TM) i7-12700K'][i % 2]}],
                    'memSize': [8, 16, 32, 64][i % 4] * 2 ** 30,
                    'gpu': [{'gpuModel': ['NVIDIA GeForce RTX 3060', 'AMD Radeon RX 6800'][i % 2]}]},
        'modularExt': {'ple': 'scanner-R550.ple', 'modular': [
            {'name': 'turntable', 'sn': '', 'mple': ['turntable-01.ple', 'handheld-02.ple'][i % 2]}]},
    }
    if kind == 'score':
        body['content'] = {'score': i % 11, 'industry': 'art'}
    if kind == 'feedback':
        body['content'] = {'email': f'user{i}@example.com', 'industry': 'art',
                           'content': f'Feedback number {i}.', 'attachs': ['shot.png']}
    return {'type': kind, 'app': RELEASE_APP if i % 4 == 0 else TEST_APP, 'body': body}


HOSTILE = {
    'type': 'feedback', 'app': TEST_APP,
    'body': {'modelName': '<img src=x onerror="window.__pwned=1">',
             'softwareVer': '"><svg onload="window.__pwned=1">',
             'osSoftExt': {'osName': '<img src=x onerror="window.__pwned=1">'},
             'content': {'email': '<a href="javascript:window.__pwned=1">mail</a>',
                         'content': '<script>window.__pwned=1</script>', 'attachs': ['<b>x</b>']}},
}


def compact(body):
    return json.dumps(body, separators=(',', ':'))


class DashboardTest:
    def __init__(self, browser, driver, collector, uploader, recorder, screenshot):
        self.browser, self.driver_path = browser, driver
        self.collector_path, self.uploader_path, self.recorder_path = collector, uploader, recorder
        self.screenshot = screenshot
        self.work = tempfile.mkdtemp(prefix='dashboard_test_')
        self.database = os.path.join(self.work, 'collector.sqlite')
        self.host = os.path.join(self.work, 'host')
        self.children = []
        self.checks = 0

    def check(self, what, test):
        test()
        self.checks += 1
        print(f'ok {self.checks} - {what}', flush=True)

    def start(self, program, args, cwd=None):
        child = Child(program, args, cwd or self.work)
        self.children.append(child)
        return child

    def start_collector(self):
        collector = self.start(self.collector_path, ['--port', '0', '--database', self.database])
        wait_for('the collector', lambda: LISTENING.search(collector.output) or collector.process.poll() is not None)
        listening = LISTENING.search(collector.output)
        assert listening, collector.output
        collector.url = listening.group(1)
        return collector

    def run(self):
        # The demo host writes its records while the collector is prepared.
        os.makedirs(os.path.join(self.host, 'res'))
        recorder = self.start(self.recorder_path, [], self.host)

        # Records stored by an earlier collector, received 1 to 60 days ago.
        assert self.start_collector().stop() == 0
        stored = [generated(i) for i in range(1500)]
        # An older collector took this; Qt's parser would leak it (see the end).
        stored.append({'type': 'usage', 'app': TEST_APP,
                       'raw': '{"osSoftExt":{"osName":"x"},"osSoftExt":{"osName":"y"}}'})
        now = datetime.now(timezone.utc)
        with closing(sqlite3.connect(self.database)) as db, db:
            db.executemany('INSERT INTO information (received_at, app_id, type, body) VALUES (?, ?, ?, ?)', [
                ((now - timedelta(days=1 + i % 60)).strftime('%Y-%m-%dT%H:%M:%SZ'), record['app'], record['type'],
                 record.get('raw') or compact(record['body'])) for i, record in enumerate(stored)])
        collector = self.start_collector()
        self.check('the collector takes the facts of the stored records on start',
                   lambda: re.search(r'figures taken from 1501 stored records', collector.output) or
                   fail(collector.output))

        self.upload_demo_records(recorder, collector)
        demo = {'usage': 1, 'scan': 1, 'calibration': 1, 'share': 1, 'score': 1, 'feedback': 1}

        posted = [generated(1500 + i) for i in range(1500)] + [HOSTILE]
        for record in posted:
            request = urllib.request.Request(
                f'{collector.url}/dtta?type={record["type"]}', data=compact(record['body']).encode(),
                headers={'X-Auth-AppID': record['app'], 'Content-Type': 'application/json'})
            with urllib.request.urlopen(request, timeout=30) as response:
                assert response.read() == b'{"status":"success"}'

        expected = dict(demo)
        for record in stored + posted:
            expected[record['type']] = expected.get(record['type'], 0) + 1
        total = sum(expected.values())
        # information_uploader sends with the release id (test=0).
        release = sum(demo.values()) + sum(record['app'] == RELEASE_APP for record in stored + posted)
        self.in_browser(collector, expected, total, release, len(stored))

        self.check('the collector stops cleanly (under the sanitizers: nothing leaked)',
                   lambda: collector.stop() == 0 or fail(collector.output[-3000:]))
        print(f'screenshot: {self.screenshot}\n{self.checks} passed, 0 failed', flush=True)

    def upload_demo_records(self, recorder, collector):
        """The demo host's records, and a file, through information_uploader."""
        assert recorder.ended() == 0, recorder.output

        def write(name, text):
            with open(os.path.join(self.host, name), 'w') as file:
                file.write(text)

        write('res/system.ini', '[General]\nenable=1\ntime_intval=60\ntest=0\nconnect_time=5\nremain=30\n')
        write('url_config.ini', f'[General]\nupload_url={collector.url}/dtta\n')
        write('vase.png', 'a picture of the scanned vase\n')
        # A record is due once it was last written three seconds before the
        # uploader starts: these were written an hour ago.
        records = os.path.join(self.host, 'keploinfo')
        an_hour_ago = time.time() - 3600
        for name in os.listdir(records):
            os.utime(os.path.join(records, name), (an_hour_ago, an_hour_ago))

        def uploader(*args):
            result = subprocess.run([self.uploader_path, '--workdir', self.host, '--file-url', f'{collector.url}/up',
                                     *args], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=60)
            assert result.returncode == 0, result.stdout.decode(errors='replace')

        uploader('upload')
        assert os.listdir(records) == [], os.listdir(records)
        uploader('send-file', os.path.join(self.host, 'vase.png'))

    def in_browser(self, collector, expected, total, release, stored):
        options = webdriver.ChromeOptions()
        options.binary_location = self.browser
        for argument in ['--headless', '--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run',
                         '--disable-background-networking', '--disable-component-update', '--disable-sync',
                         '--disable-dev-shm-usage', '--window-size=1400,1000',
                         f'--user-data-dir={os.path.join(self.work, "profile")}']:
            options.add_argument(argument)
        # The page's console errors and uncaught exceptions, read at the end.
        options.set_capability('goog:loggingPrefs', {'browser': 'ALL'})
        driver = webdriver.Chrome(service=Service(self.driver_path), options=options)
        try:
            Page(driver, collector.url).test(self, expected, total, release, stored)
        finally:
            driver.quit()

    def clean_up(self):
        for child in self.children:
            if child.process.poll() is None:
                child.process.kill()
                child.process.wait()
        shutil.rmtree(self.work, ignore_errors=True)


def fail(message):
    raise AssertionError(message)


class Page:
    def __init__(self, driver, url):
        self.driver, self.url = driver, url
        driver.get(f'{url}/')

    def script(self, body, *args):
        return self.driver.execute_script(body, *args)

    def text(self, selector):
        return self.script('return document.querySelector(arguments[0])?.textContent ?? null', selector)

    def shows(self, selector, wanted):
        try:
            WebDriverWait(self.driver, 15, poll_frequency=0.05).until(lambda _: self.text(selector) == wanted)
        except TimeoutException:
            fail(f'{selector} shows "{self.text(selector)}", not "{wanted}" (status: {self.text("#status")})')

    def select(self, selector, value):
        Select(self.driver.find_element(By.CSS_SELECTOR, selector)).select_by_value(value)

    def full_screenshot(self, path):
        size = self.driver.execute_cdp_cmd('Page.getLayoutMetrics', {})['cssContentSize']
        shot = self.driver.execute_cdp_cmd('Page.captureScreenshot', {
            'format': 'png', 'captureBeyondViewport': True,
            'clip': {'x': 0, 'y': 0, 'width': size['width'], 'height': size['height'], 'scale': 1}})
        with open(path, 'wb') as file:
            file.write(base64.b64decode(shot['data']))

    def test(self, test, expected, total, release, stored):
        def totals():
            self.shows('#record-total', str(total))
            rows = self.script("""return [...document.querySelectorAll('#totals tbody tr')]
                .map((row) => [row.cells[0].textContent, Number(row.cells[1].textContent)])""")
            assert dict(rows) == expected, rows
        test.check('the totals per type are those sent', totals)

        def charts():
            drawn = self.script("""return [...document.querySelectorAll('canvas')].map((canvas) => {
                const pixels = canvas.getContext('2d').getImageData(0, 0, canvas.width, canvas.height).data;
                let drawn = 0;
                for (let i = 3; i < pixels.length; i += 4) if (pixels[i]) ++drawn;
                const data = Chart.getChart(canvas).data.datasets.flatMap((set) => set.data);
                return { id: canvas.id, drawn, sum: data.reduce((a, b) => a + b, 0) };
            })""")
            assert len(drawn) == 11, drawn
            for chart in drawn:
                assert chart['drawn'] > 1000 and chart['sum'] > 0, chart
            sums = {chart['id']: chart['sum'] for chart in drawn}
            assert sums['chart-days'] == total, sums
            assert sums['facet-os'] == expected['usage'], sums  # one operating system each
            assert sums['chart-scores'] == expected['score'], sums
        test.check('every chart is drawn, with the counts sent', charts)

        def record_json():
            self.driver.find_element(By.CSS_SELECTOR, '#record-rows tr').click()
            WebDriverWait(self.driver, 15, poll_frequency=0.05).until(lambda _: self.text('#record-json'))
            assert self.text('#record-json') == json.dumps(HOSTILE['body'], indent=2)
        test.check("a click shows the record's JSON, indented", record_json)

        def stays_text():
            assert self.script('return window.__pwned') is None
            assert self.driver.find_elements(By.CSS_SELECTOR, 'img, svg, a[href^="javascript"], script:not([src])') == []
            assert '<script>window.__pwned=1</script>' in self.text('#feedback-list')
            assert '"><svg onload="window.__pwned=1">' in self.text('#record-rows')
        test.check('texts from records stay text: no element, no script', stays_text)

        def type_filter():
            self.select('#type', 'score')
            self.shows('#record-count', f'{expected["score"]} records')
            types = self.script("return [...document.querySelectorAll('#totals tbody td:first-child')].map((cell) => cell.textContent)")
            assert types == ['score'], types
            self.select('#type', '')
        test.check('the type filter counts the records of that type', type_filter)

        def application_filter():
            self.select('#app', RELEASE_APP)
            self.shows('#record-count', f'{release} records')
            self.select('#app', '')
        test.check('the application filter counts the records of that application', application_filter)

        def time_filter():
            self.select('#range', 'day')
            self.shows('#record-count', f'{total - stored} records')
            self.select('#range', 'all')
            self.shows('#record-count', f'{total} records')
        test.check('the time filter leaves out the records received days ago', time_filter)

        def file_listed():
            link = self.driver.find_element(By.CSS_SELECTOR, '#file-rows a')
            assert link.get_attribute('textContent') == 'vase.png'
            with urllib.request.urlopen(self.url + link.get_dom_attribute('href'), timeout=30) as download:
                assert download.read() == b'a picture of the scanned vase\n'
        test.check('the uploaded file is listed, with a link that downloads it', file_listed)

        self.full_screenshot(test.screenshot)
        # The browser asks for /favicon.ico on its own; the page does not.
        favicon = f'{self.url}/favicon.ico '
        problems = [entry['message'] for entry in self.driver.get_log('browser')
                    if entry['level'] == 'SEVERE' and not entry['message'].startswith(favicon)]
        test.check('nothing went wrong in the page', lambda: problems == [] or fail(problems))


def main():
    def too_long(*_):
        raise TimeoutError('the test took over three minutes')
    signal.signal(signal.SIGALRM, too_long)
    signal.alarm(180)
    test = DashboardTest(*[os.path.abspath(argument) for argument in sys.argv[1:7]])
    try:
        test.run()
    finally:
        signal.alarm(0)
        test.clean_up()


if __name__ == '__main__':
    main()
