(function () {
  var card = document.getElementById('upload');
  var input = document.getElementById('upload-file');
  var choose = document.getElementById('upload-choose');
  var status = document.getElementById('upload-status');
  var progress = document.getElementById('upload-progress');

  function say(text, tone) {
    status.textContent = text;
    status.className = tone ? 'status ' + tone : 'status';
  }

  function messageOf(answer, fallback) {
    return (answer && answer.message) || fallback;
  }

  function isTaken(name) {
    say('正在检查同名文件：' + name);
    return fetch(card.dataset.check + '?name=' + encodeURIComponent(name), {
      cache: 'no-store', credentials: 'same-origin'
    }).then(function (response) {
      return response.json().catch(function () { return null; }).then(function (answer) {
        if (!response.ok || !answer) throw new Error(messageOf(answer, '无法检查同名文件。'));
        return answer.exists === true;
      });
    }, function () { throw new Error('无法检查同名文件。'); });
  }

  function send(file, overwrite) {
    return new Promise(function (done) {
      var request = new XMLHttpRequest();
      request.open('PUT', card.dataset.put);
      request.responseType = 'json';
      request.setRequestHeader('Content-Type', 'application/octet-stream');
      request.setRequestHeader('X-File-Name', encodeURIComponent(file.name));
      request.setRequestHeader('X-Overwrite', overwrite ? '1' : '0');
      function show(percent) {
        progress.value = percent;
        say('正在上传：' + file.name + '（' + percent + '%）');
      }
      request.upload.onprogress = function (event) {
        if (event.lengthComputable) show(Math.floor(event.loaded * 100 / event.total));
      };
      request.onload = function () {
        if (request.status >= 200 && request.status < 300) {
          say(messageOf(request.response, '上传成功'), 'ok');
          window.setTimeout(function () { window.location.reload(); }, 600);
        } else {
          say(messageOf(request.response, '上传失败，请稍后重试。'), 'error');
        }
        done();
      };
      request.onerror = function () {
        say('上传失败，请检查网络后重试。', 'error');
        done();
      };
      progress.hidden = false;
      show(0);
      request.send(file);
    });
  }

  function upload(file) {
    choose.disabled = true;
    isTaken(file.name).then(function (taken) {
      if (taken && !window.confirm('当前目录已存在同名文件，是否覆盖？')) {
        say('已取消上传。');
        return null;
      }
      return send(file, taken);
    }).catch(function (error) {
      say(error.message, 'error');
    }).then(function () {
      progress.hidden = true;
      choose.disabled = false;
      input.value = '';
    });
  }

  choose.addEventListener('click', function () { input.click(); });
  input.addEventListener('change', function () {
    if (input.files.length > 0) upload(input.files[0]);
  });
})();
